// SPDX-License-Identifier: Apache-2.0
#include "context.h"

#include <cstring>

#include "netsnmpagent_oryx.h"

namespace oryx {
namespace {

const char PDU_NUMBER_NAME[] = "netsnmpagent_oryx_pdu_number";

const PduContext *innermost = nullptr;
uint32_t last_number = 0;

uint32_t next_number() {
    last_number = pdu_number_after(last_number);
    return last_number;
}

// The PDU's number, made at its first handler call and kept in the agent's own list
// of data for the PDU: several columns, the passes of a SET and the repetitions of
// a GETBULK all find it there. Neither the request id nor the transaction id would
// do: clients reuse the one, and the agent leaves the other 0 on its internal
// transport.
//
// The data is the number itself in place of a pointer, and nothing of ours releases it:
// the agent may unload this library in the middle of a PDU and drop the list afterwards.
uint32_t number_of(netsnmp_agent_request_info &request_info) {
    if (const void *stored = netsnmp_agent_get_list_data(&request_info, PDU_NUMBER_NAME)) {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(stored));
    }
    // Without memory the PDU gets a new number at each call: requests are repeated,
    // but nothing stale is served.
    const uint32_t number = next_number();
    void *stored = reinterpret_cast<void *>(static_cast<uintptr_t>(number));
    if (netsnmp_data_list *node = netsnmp_create_data_list(PDU_NUMBER_NAME, stored, nullptr)) {
        netsnmp_agent_add_list_data(&request_info, node);
    }
    return number;
}

void copy_user(PduContext &context, const void *name, size_t length) {
    const size_t copied = length < MTS_WIRE_MAX_USER ? length : MTS_WIRE_MAX_USER;
    if (copied > 0) {
        memcpy(context.user, name, copied);
    }
    context.user[copied] = '\0';
    context.identified = strlen(context.user) == length;
}

// An SNMPv3 requester is its security name, an older one its community. Other
// protocols (a master agent's AgentX) do not say who asked.
void identify(PduContext &context, const netsnmp_agent_session *asp) {
    context.session = 0;
    context.identified = false;
    context.user[0] = '\0';
    if (!asp) {
        return;
    }
    if (asp->session) {
        context.session = static_cast<uint32_t>(asp->session->sessid);
    }
    const netsnmp_pdu *pdu = asp->pdu;
    if (!pdu) {
        return;
    }
    if (pdu->version == SNMP_VERSION_3) {
        if (pdu->securityName) {
            copy_user(context, pdu->securityName, pdu->securityNameLen);
        }
    } else if (pdu->version == SNMP_VERSION_1 || pdu->version == SNMP_VERSION_2c) {
        if (pdu->community || pdu->community_len == 0) {
            copy_user(context, pdu->community, pdu->community_len);
        }
    }
}

} // namespace

const PduContext *current_pdu() {
    return innermost;
}

PduScope::PduScope(netsnmp_agent_request_info &request_info) : outer_(innermost) {
    context_.number = number_of(request_info);
    identify(context_, request_info.asp);
    innermost = &context_;
}

PduScope::~PduScope() {
    innermost = outer_;
}

} // namespace oryx

extern "C" {

const char *get_snmp_username(int) {
    const oryx::PduContext *pdu = oryx::current_pdu();
    return pdu ? pdu->user : nullptr;
}

uint32_t get_snmp_sessionid(int) {
    const oryx::PduContext *pdu = oryx::current_pdu();
    return pdu ? pdu->session : 0;
}

// Outside any PDU every call gets a number of its own, which no PDU will get: a
// caller that keeps what it read under the number it read it with finds that number
// gone the next time, and reads again. A constant would make two unrelated reads
// look like one PDU.
uint32_t get_pdu_reqid(void) {
    const oryx::PduContext *pdu = oryx::current_pdu();
    return pdu ? pdu->number : oryx::next_number();
}

} // extern "C"
