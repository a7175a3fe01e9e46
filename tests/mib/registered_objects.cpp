// SPDX-License-Identifier: Apache-2.0
// What the built module tells an agent, for the tests of the MIB text. This program is the
// agent: it takes the registration, and hands write methods their first phase.
//
//     registered_objects MODULE                    a line for each object: object SUFFIX TYPE ACCESS
//     registered_objects MODULE SUFFIX NUMBER...   the error status with which RESERVE1 of the
//                                                  object answers each number: set NUMBER STATUS
//
// For an OCTET STRING a number stands for a value of so many octets.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "netsnmpagent_oryx.h"

namespace {

std::vector<variable7> objects;
std::vector<oid> root;

std::string suffix_of(const variable7 &row) {
    std::string text;
    for (u_char arc = 0; arc < row.namelen; ++arc) {
        text += (arc == 0 ? "" : ".") + std::to_string(row.name[arc]);
    }
    return text;
}

// The object's write method as its read handler gives it, or, where the handler gives it for
// rows only that exist, as the table's selection does; null for none.
WriteMethod *write_method_of(void *module, const variable7 &row, oid *name, size_t length) {
    variable var = {};
    var.magic = row.magic;
    var.type = static_cast<decltype(var.type)>(row.type);
    var.acl = row.acl;
    var.namelen = static_cast<u_char>(length - 1);
    memcpy(var.name, name, (length - 1) * sizeof *name);
    oid asked[MAX_OID_LEN];
    memcpy(asked, name, length * sizeof *name);
    size_t value_length = 0;
    WriteMethod *method = nullptr;
    row.findVar(&var, asked, &length, 1, &value_length, &method);
    void *select = dlsym(module, "set_if_table_set_methods");
    if (method == nullptr && select != nullptr) {
        reinterpret_cast<void (*)(int, WriteMethod **)>(select)(row.magic, &method);
    }
    return method;
}

int reserve(WriteMethod *method, const variable7 &row, oid *name, size_t length, const char *number) {
    const auto value = static_cast<long>(strtoll(number, nullptr, 10));
    std::vector<u_char> bytes(sizeof value);
    memcpy(bytes.data(), &value, sizeof value);
    if (row.type == ASN_OCTET_STR) {
        bytes.assign(static_cast<size_t>(value), 'x');
    }
    bytes.reserve(1);
    const int status = method(RESERVE1, bytes.data(), row.type, bytes.size(), nullptr, name, length);
    method(FREE, bytes.data(), row.type, bytes.size(), nullptr, name, length);
    return status;
}

bool set(void *module, const std::string &suffix, int count, char **numbers) {
    for (const variable7 &row : objects) {
        if (suffix_of(row) != suffix) {
            continue;
        }
        std::vector<oid> name = root;
        name.insert(name.end(), row.name, row.name + row.namelen);
        // A scalar has three arcs and one instance; of a table any row will do.
        name.push_back(row.namelen == 3 ? 0 : 10);
        WriteMethod *method = write_method_of(module, row, name.data(), name.size());
        for (int i = 0; i < count; ++i) {
            printf("set %s %d\n", numbers[i],
                   method == nullptr ? SNMP_ERR_NOTWRITABLE
                                     : reserve(method, row, name.data(), name.size(), numbers[i]));
        }
        return true;
    }
    return false;
}

} // namespace

extern "C" {

// These stand before those of the agent and of its extension library.

int register_mib(const char *, const variable *rows, size_t width, size_t count, const oid *name, size_t length) {
    root.assign(name, name + length);
    for (size_t i = 0; i < count; ++i) {
        variable7 row;
        memcpy(&row, reinterpret_cast<const char *>(rows) + i * width, sizeof row);
        objects.push_back(row);
    }
    return MIB_REGISTERED_OK;
}

int snmp_get_allowed_vsans_subtree(allowed_vsan_list *, const oid *, size_t, int) {
    return 0;
}

} // extern "C"

int main(int argc, char **argv) {
    if (argc < 2) {
        return 2;
    }
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    if (argc > 2) {
        return set(module, argv[2], argc - 3, argv + 3) ? 0 : 1;
    }
    for (const variable7 &row : objects) {
        printf("object %s %d %d\n", suffix_of(row).c_str(), static_cast<int>(row.type), static_cast<int>(row.acl));
    }
    return 0;
}
