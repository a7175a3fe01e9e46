// SPDX-License-Identifier: Apache-2.0
#include "registrations.h"

#include <cstring>

#include <net-snmp/agent/sysORTable.h>

#include "netsnmpagent_oryx/requester.h"

namespace switch_agent {
namespace {

// A name that the agent has from here.
struct Registered {
    const oid *name;
    size_t length;
};

constexpr unsigned MOST_OBJECTS = 16;
constexpr unsigned MOST_MODULES = 4;

Registered objects[MOST_OBJECTS];
unsigned object_count = 0;
Registered modules[MOST_MODULES];
unsigned module_count = 0;

// A registration with its handler and the one that says who asks, or null without memory.
netsnmp_handler_registration *make_registration(const char *name, const oid *root, size_t length,
                                                Netsnmp_Node_Handler *handler, void *argument, Access access) {
    const int modes = access == Access::read_only ? HANDLER_CAN_RONLY : HANDLER_CAN_RWRITE;
    netsnmp_handler_registration *registration =
        netsnmp_create_handler_registration(name, handler, root, length, modes);
    if (!registration) {
        return nullptr;
    }
    registration->handler->myvoid = argument;
    if (oryx_note_requester(registration) != 0) {
        netsnmp_handler_registration_free(registration);
        return nullptr;
    }
    return registration;
}

void report(const char *name) {
    snmp_log(LOG_ERR, "switchmib: the agent does not take %s, which is not served here\n", name);
}

void keep_if(bool is_registered, const char *name, const oid *root, size_t length) {
    if (is_registered) {
        objects[object_count++] = {root, length};
    } else {
        report(name);
    }
}

} // namespace

void add_scalar(const char *name, const oid *root, size_t length, Netsnmp_Node_Handler *handler, void *argument,
                Access access) {
    netsnmp_handler_registration *registration = make_registration(name, root, length, handler, argument, access);
    keep_if(object_count < MOST_OBJECTS && registration && netsnmp_register_scalar(registration) == MIB_REGISTERED_OK,
            name, root, length);
}

void add_table(const char *name, const oid *root, size_t length, Netsnmp_Node_Handler *handler, void *argument,
               netsnmp_table_registration_info &columns) {
    netsnmp_handler_registration *registration =
        make_registration(name, root, length, handler, argument, Access::read_write);
    keep_if(object_count < MOST_OBJECTS && registration && columns.indexes &&
                netsnmp_register_table(registration, &columns) == MIB_REGISTERED_OK,
            name, root, length);
}

void add_module(const oid *identity, size_t length, const char *description) {
    if (module_count == MOST_MODULES) {
        return;
    }
    modules[module_count++] = {identity, length};
    REGISTER_SYSOR_TABLE(const_cast<oid *>(identity), length, description);
}

void remove_all() {
    while (object_count > 0) {
        // Under a name of its own: the agent releases the registration's while it goes by it.
        const Registered &object = objects[--object_count];
        oid name[MAX_OID_LEN];
        memcpy(name, object.name, object.length * sizeof(oid));
        unregister_mib(name, object.length);
    }
    while (module_count > 0) {
        const Registered &module = modules[--module_count];
        UNREGISTER_SYSOR_TABLE(const_cast<oid *>(module.name), module.length);
    }
}

} // namespace switch_agent
