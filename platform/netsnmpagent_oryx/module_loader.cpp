// SPDX-License-Identifier: Apache-2.0
// Brings the module in and out, on the agent's `dlmod netsnmpagent_oryx PATH`.
//
// `dlmod` opens what it is given and then calls its entry. A module that initialises
// in its constructor would be initialised twice; this library has nothing to do in
// its entry but to open the module, whose constructor does the rest, once.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "module_loader.h"

namespace oryx {
namespace {

const char MODULE_FILE[] = "libvsanmib.so";
const char MODULE_VARIABLE[] = "ORYX_MODULE";

void *module_handle = nullptr;

// Where the module is: beside this library unless the environment says otherwise.
// False when the path does not fit.
bool find_module(char *path, size_t size) {
    const char *named = getenv(MODULE_VARIABLE);
    if (named && *named) {
        return static_cast<size_t>(snprintf(path, size, "%s", named)) < size;
    }
    Dl_info self;
    if (dladdr(MODULE_FILE, &self) == 0 || !self.dli_fname) {
        return static_cast<size_t>(snprintf(path, size, "%s", MODULE_FILE)) < size;
    }
    const char *slash = strrchr(self.dli_fname, '/');
    const int folder = slash ? static_cast<int>(slash + 1 - self.dli_fname) : 0;
    return static_cast<size_t>(snprintf(path, size, "%.*s%s", folder, self.dli_fname, MODULE_FILE)) < size;
}

} // namespace
} // namespace oryx

extern "C" {

void init_netsnmpagent_oryx(void) {
    using namespace oryx;
    if (module_handle) {
        return;
    }
    char path[PATH_MAX];
    if (!find_module(path, sizeof(path))) {
        snmp_log(LOG_ERR, "netsnmpagent_oryx: the path of %s is too long; its objects are not served\n", MODULE_FILE);
        return;
    }
    module_handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!module_handle) {
        const char *reason = dlerror();
        snmp_log(LOG_ERR, "netsnmpagent_oryx: cannot load the module: %s; its objects are not served\n",
                 reason ? reason : path);
    }
}

void deinit_netsnmpagent_oryx(void) {
    using namespace oryx;
    if (!module_handle) {
        return;
    }
    dlclose(module_handle);
    module_handle = nullptr;
}

} // extern "C"
