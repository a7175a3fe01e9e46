// SPDX-License-Identifier: Apache-2.0
// The virtual switch's own part of the agent: what a switch shows of itself beside its VSANs.
#include "switch_mib.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "contract/events.h"
#include "fault_list.h"
#include "if_tables.h"
#include "link_notifications.h"
#include "netsnmpagent_oryx.h"
#include "registrations.h"
#include "system_group.h"

namespace {

const oid SNMPV2_MIB[] = {1, 3, 6, 1, 6, 3, 1};
const oid IF_MIB[] = {1, 3, 6, 1, 2, 1, 31};
const oid VSAN_MIB[] = {1, 3, 6, 1, 4, 1, static_cast<oid>(VENDOR_PEN), 9, 282};

bool is_started = false;

} // namespace

extern "C" {

void init_switchmib(void) {
    using namespace switch_agent;
    if (is_started) {
        return;
    }
    is_started = true;
    register_system_group();
    register_interfaces();
    add_module(SNMPV2_MIB, OID_LENGTH(SNMPV2_MIB), "The MIB module for SNMP entities.");
    add_module(IF_MIB, OID_LENGTH(IF_MIB),
               "The MIB module to describe generic objects for network interface sub-layers.");
    add_module(VSAN_MIB, OID_LENGTH(VSAN_MIB), "The virtual storage area networks of a Fibre Channel switch.");
    if (register_for_notification(EVENT_PORT_CHANGED, notify_of_link) != 0) {
        snmp_log(LOG_ERR, "switchmib: no room for another class of events; links are not notified of\n");
    }
    fault_list_start();
}

void deinit_switchmib(void) {
    using namespace switch_agent;
    if (!is_started) {
        return;
    }
    fault_list_stop();
    unregister_for_notification(EVENT_PORT_CHANGED);
    remove_all();
    release_interfaces();
    is_started = false;
}

} // extern "C"
