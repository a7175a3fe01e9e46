// SPDX-License-Identifier: Apache-2.0
// Registration of the module's objects with the agent, and its two entries.

#include "vsan_mib_exports.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_registration.h"
#include "vsan_mib_staging.h"

#include "netsnmpagent_oryx.h"

#include <cstdio>
#include <cstring>
#include <iterator>

const oid vsan_mib_variables_oid[vsan_mib_root_length] = {1, 3, 6, 1, 4, 1, VENDOR_PEN, 9, 282};

// Where a value reads but must not be written, the row is read-only. vsanOperState is
// read-write although nothing writes it: the agent refuses a SET of it for want of a
// write method. The index vsanIndex (column 1) and column 7 are not registered.
//
// clang-format off
constexpr variable7 vsan_mib_variables[vsan_mib_variables_count] = {
    {VSANNUMBER,                   ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  get_vsan_mib,                   3, {1, 1, 1}},
    {VSANTABLELASTCHANGE,          ASN_TIMETICKS, NETSNMP_OLDAPI_RONLY,  get_vsan_mib,                   3, {1, 1, 2}},
    {VSANNAME,                     ASN_OCTET_STR, NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 2}},
    {VSANMEDIATYPE,                ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  get_vsanEntry,                  5, {1, 1, 3, 1, 3}},
    {VSANADMINSTATE,               ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 4}},
    {VSANMTU,                      ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  get_vsanEntry,                  5, {1, 1, 3, 1, 5}},
    {VSANLOADBALANCINGTYPE,        ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 6}},
    {VSANOPERSTATE,                ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 8}},
    {VSANROWSTATUS,                ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 9}},
    {VSANINTEROPERTYPE,            ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 10}},
    {VSANINORDERDELIVERY,          ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 11}},
    {VSANNETWORKDROPLATENCY,       ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsanEntry,                  5, {1, 1, 3, 1, 12}},
    {VSANIFNUMBER,                 ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  get_vsan_mib,                   3, {1, 2, 4}},
    {VSANIFVSAN,                   ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsanIfEntry,                5, {1, 2, 5, 1, 1}},
    {VSANIFDENYLIST,               ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  get_vsanIfEntry,                5, {1, 2, 5, 1, 2}},
    {VSANMEMBERSHIPSUMMARYIFINDEX, ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  get_vsanMembershipSummaryEntry, 5, {1, 2, 8, 1, 1}},
    {FCTIMERRATOV,                 ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 1}},
    {FCTIMEREDTOV,                 ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 2}},
    {FCTIMERFSTOV,                 ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  get_vsan_mib,                   3, {1, 4, 3}},
    {FCTIMERDSTOV,                 ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 4}},
    {FCNETWORKLATENCY,             ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 5}},
    {FCSWITCHLATENCY,              ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 6}},
    {FCINORDERDELIVERY,            ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, get_vsan_mib,                   3, {1, 4, 7}},
    {VSANFCTIMERFORCEFLAG,         ASN_OCTET_STR, NETSNMP_OLDAPI_RWRITE, get_vsanFcTimerEntry,           5, {1, 4, 8, 1, 1}},
    {VSANFCTIMERRATOV,             ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsanFcTimerEntry,           5, {1, 4, 8, 1, 2}},
    {VSANFCTIMEREDTOV,             ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsanFcTimerEntry,           5, {1, 4, 8, 1, 3}},
    {VSANFCTIMERDSTOV,             ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, get_vsanFcTimerEntry,           5, {1, 4, 8, 1, 4}},
    {VSANFCTIMERFSTOV,             ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  get_vsanFcTimerEntry,           5, {1, 4, 8, 1, 5}},
};
// clang-format on

namespace {

constexpr FindVarMethod *reader_of(object_table table) {
    constexpr FindVarMethod *readers[] = {get_vsan_mib, get_vsanEntry, get_vsanIfEntry, get_vsanMembershipSummaryEntry,
                                          get_vsanFcTimerEntry};
    return readers[static_cast<int>(table)];
}

// Whether the rows say what vsan_objects says, in the same order.
constexpr bool fits_objects() {
    for (size_t i = 0; i < vsan_mib_variables_count; ++i) {
        const variable7 &row = vsan_mib_variables[i];
        const vsan_object &object = vsan_objects[i];
        const int arcs = object.table == object_table::scalar ? 3 : 5;
        if (row.magic != object.magic || row.type != object.type || row.acl != object.access ||
            row.findVar != reader_of(object.table) || row.namelen != arcs) {
            return false;
        }
    }
    return std::size(vsan_objects) == vsan_mib_variables_count;
}
static_assert(fits_objects());

} // namespace

static_assert(ASN_UNSIGNED == 0x42 && ASN_TIMETICKS == 0x43);
static_assert(NETSNMP_OLDAPI_RONLY == 1 && NETSNMP_OLDAPI_RWRITE == 2);

namespace {

// Takes the whole subtree from the agent. unregister_mib wants the exact name of a
// registration, and register_mib makes one for each row, so the call for the root
// alone would leave every row pointing into code that may be about to go away.
void unregister_vsan_mib() {
    oid name[MAX_OID_LEN];
    memcpy(name, vsan_mib_variables_oid, sizeof vsan_mib_variables_oid);

    unregister_mib(name, vsan_mib_root_length);
    for (const variable7 &row : vsan_mib_variables) {
        memcpy(name + vsan_mib_root_length, row.name, row.namelen * sizeof(oid));
        unregister_mib(name, vsan_mib_root_length + row.namelen);
    }
}

// The agent's standard report of a failed registration, seen when its debugging is on.
void debug_registration_failure(const char *function, int line) {
    if (snmp_get_do_debugging() == 0) {
        return;
    }
    debugmsgtoken("trace", "%s(): %s, %d:\n", function, "vsan_mib_talvex", line);
    debugmsg("trace", "%s(): %s, %d:\n", function, "vsan_mib_talvex", line);
    debugmsgtoken("register_mib", "%s registration failed\n", "vsan_mib");
    debugmsg("register_mib", "%s registration failed\n", "vsan_mib");
}

} // namespace

extern "C" {

// The module's entry. Registers the objects, subscribes to the managers' events and
// makes the staging lists. A failed registration does not stop it; without its lists
// the module answers nothing, but stays subscribed.
void init_vsan_mib(void) {
    printf("DEBUG : ENTER %s \n", "init_vsan_mib");

    // The agent copies what it keeps; its row type is only not declared const, and
    // variable7 is the short form of `variable`.
    if (register_mib("vsan_mib", reinterpret_cast<const variable *>(vsan_mib_variables), sizeof vsan_mib_variables[0],
                     vsan_mib_variables_count, vsan_mib_variables_oid, vsan_mib_root_length) != MIB_REGISTERED_OK) {
        debug_registration_failure(__func__, __LINE__);
    }

    register_for_notification(EVENT_CLASS_VSAN_CONFIG, handle_notifications);
    register_for_notification(EVENT_CLASS_PORT_MEMBERSHIP, handle_port_memb_change_notifications);

    if (!create_staging_lists()) {
        unregister_vsan_mib();
        return;
    }
    printf("DEBUG : EXIT %s \n", "init_vsan_mib");
}

// The module's exit: undoes init_vsan_mib in reverse. Harmless when repeated.
void deinit_vsan_mib(void) {
    printf("DEBUG : ENTER %s \n", "deinit_vsan_mib");
    unregister_vsan_mib();
    destroy_staging_lists();
    unregister_for_notification(EVENT_CLASS_VSAN_CONFIG);
    unregister_for_notification(EVENT_CLASS_PORT_MEMBERSHIP);
    printf("DEBUG : EXIT %s \n", "deinit_vsan_mib");
}

} // extern "C"
