// SPDX-License-Identifier: Apache-2.0
#include "own_answers.h"

#include <cstdint>
#include <cstdio>

#include <net-snmp/library/lcd_time.h>
#include <net-snmp/library/snmpv3.h>

namespace switch_agent {
namespace {

// snmpEngineBoots stays there once it has come to its greatest value (RFC 3414).
constexpr u_long BOOTS_MAX = 2147483647;

// Sends an answer, which belongs to the agent then.
void send(netsnmp_session *session, netsnmp_pdu *answer) {
    if (snmp_send(session, answer) == 0) {
        snmp_free_pdu(answer);
        return;
    }
    snmp_increment_statistic(STAT_SNMPOUTPKTS);
}

void report(netsnmp_session *session, netsnmp_pdu &request, int error, int statistic) {
    netsnmp_pdu *answer = snmp_clone_pdu(&request);
    if (!answer) {
        return;
    }
    snmp_increment_statistic(statistic);
    if (snmpv3_make_report(answer, error) == SNMPERR_SUCCESS) {
        send(session, answer);
    } else {
        snmp_free_pdu(answer);
    }
}

} // namespace

void answer_error(netsnmp_session *session, netsnmp_pdu &request, long status, long index) {
    if (netsnmp_pdu *answer = snmp_clone_pdu(&request)) {
        answer->command = SNMP_MSG_RESPONSE;
        answer->errstat = status;
        answer->errindex = index;
        send(session, answer);
    }
}

void answer_too_big(netsnmp_session *session, netsnmp_pdu &request) {
    netsnmp_pdu *answer = snmp_clone_pdu(&request);
    if (!answer) {
        return;
    }
    if (answer->version != SNMP_VERSION_1) {
        snmp_free_varbind(answer->variables);
        answer->variables = nullptr;
    }
    answer->command = SNMP_MSG_RESPONSE;
    answer->errstat = SNMP_ERR_TOOBIG;
    answer->errindex = 0;
    snmp_increment_statistic(STAT_SNMPOUTTOOBIGS);
    send(session, answer);
}

void report_not_in_time_window(netsnmp_session *session, netsnmp_pdu &request) {
    report(session, request, SNMPERR_USM_NOTINTIMEWINDOW, STAT_USMSTATSNOTINTIMEWINDOWS);
}

void report_unknown_engine(netsnmp_session *session, netsnmp_pdu &request) {
    report(session, request, SNMPERR_USM_UNKNOWNENGINEID, STAT_USMSTATSUNKNOWNENGINEIDS);
}

void reboot_engine() {
    const u_long boots = snmpv3_local_snmpEngineBoots();
    if (boots >= BOOTS_MAX - 1) {
        return;
    }
    // What the agent does with the line of its file at a start: one more than it says.
    char text[24];
    snprintf(text, sizeof text, "%lu", boots);
    engineBoots_conf("engineBoots", text);
    // Messages are signed with what stands there.
    u_char engine[64];
    const size_t length = snmpv3_get_engineID(engine, sizeof engine);
    set_enginetime(engine, static_cast<u_int>(length), static_cast<u_int>(boots) + 1,
                   static_cast<u_int>(snmpv3_local_snmpEngineTime()), TRUE);
    snmp_store(netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE));
}

} // namespace switch_agent
