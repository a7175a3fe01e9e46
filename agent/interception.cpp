// SPDX-License-Identifier: Apache-2.0
#include "interception.h"

#include <cstddef>
#include <dlfcn.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/snmpUDPIPv6Domain.h>
#include <net-snmp/library/snmp_alarm.h>

#include "fault_list.h"
#include "kept_messages.h"
#include "own_answers.h"
#include "sessions.h"

namespace switch_agent {
namespace {

// Changes this bit of a request id: no id that a client counts up to is near.
constexpr long WRONG_ID_BIT = 0x40000000;

bool sees_requests = false;
bool sees_notifications = false;

// The transports' own ways of sending, of those kinds that have been replaced.
struct Kind {
    const oid *domain;
    Send send;
};
Kind kinds[] = {{netsnmpUDPDomain, nullptr}, {netsnmp_UDPIPv6Domain, nullptr}};

// The request that the agent is answering.
struct Exchange {
    Exchange *outer;
    const Message &message;
    Fault *fault; // the first that its answer may meet, or null
    unsigned edition;
    Send send;
    bool is_too_big;
};
Exchange *current = nullptr;

Kind *kind_of(const netsnmp_transport *transport) {
    for (Kind &kind : kinds) {
        if (transport && transport->domain == kind.domain) {
            return &kind;
        }
    }
    return nullptr;
}

// The parts that a message may meet on its way out.
bool is_about_answers(const Fault &fault) {
    switch (fault.action) {
    case CLIENT_FAULT_LOSE_ANSWER:
    case CLIENT_FAULT_DELAY_ANSWER:
    case CLIENT_FAULT_REPEAT_ANSWER:
    case CLIENT_FAULT_REORDER_ANSWERS:
    case CLIENT_FAULT_CUT_ANSWER:
    case CLIENT_FAULT_TOO_BIG:
        return true;
    default:
        return false;
    }
}

int send_part(const Outgoing &message, int size) {
    return message.send(message.transport, message.bytes, size, message.socket_address, message.socket_address_size);
}

int send_now(const Outgoing &message) {
    const int result = send_part(message, message.size);
    send_those_behind(message);
    return result;
}

// What a fault makes of a message that is about to leave. The agent is told that it has left.
int act_on(const Outgoing &message, Fault &fault) {
    switch (fault.action) {
    case CLIENT_FAULT_LOSE_ANSWER:
    case CLIENT_FAULT_LOSE_NOTIFICATION:
        return message.size;
    case CLIENT_FAULT_DELAY_ANSWER:
    case CLIENT_FAULT_DELAY_NOTIFICATION:
        return keep_for(message, fault_delay(fault)) ? message.size : send_now(message);
    case CLIENT_FAULT_REPEAT_ANSWER:
    case CLIENT_FAULT_REPEAT_NOTIFICATION:
        send_part(message, message.size);
        return send_now(message);
    case CLIENT_FAULT_REORDER_ANSWERS:
    case CLIENT_FAULT_REORDER_NOTIFICATIONS:
        return keep_for_next(message) ? message.size : send_now(message);
    case CLIENT_FAULT_CUT_ANSWER:
        send_part(message, static_cast<int>(fault.value) < message.size ? static_cast<int>(fault.value) : message.size);
        send_those_behind(message);
        return message.size;
    default:
        return send_now(message);
    }
}

// The f_send of a transport that answers requests, while it answers one that may meet a fault.
int send_answer(netsnmp_transport *transport, const void *bytes, int size, void **socket_address,
                int *socket_address_size) {
    Exchange &exchange = *current;
    const Outgoing message = {
        transport, exchange.send, bytes, size, socket_address, socket_address_size, exchange.message.address, false};
    Fault *fault = exchange.edition == fault_list_edition() ? exchange.fault : nullptr;
    for (; fault; fault = next_fault(exchange.message, fault)) {
        const bool fits = fault->action == CLIENT_FAULT_TOO_BIG && size <= static_cast<int>(fault->value);
        if (!is_about_answers(*fault) || fits || !applies(*fault)) {
            continue;
        }
        if (fault->action == CLIENT_FAULT_TOO_BIG) {
            exchange.is_too_big = true;
            return size;
        }
        return act_on(message, *fault);
    }
    return send_now(message);
}

// Lets the agent carry out a request and answer it, with `fault` the first that the answer may meet.
int serve(const Message &message, Fault *fault, netsnmp_session *session, int request_id, netsnmp_pdu &pdu) {
    netsnmp_transport *transport = snmp_sess_transport(snmp_sess_pointer(session));
    if (!kind_of(transport)) {
        return handle_snmp_packet(NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE, session, request_id, &pdu, nullptr);
    }
    Exchange exchange = {current, message, fault, fault_list_edition(), transport->f_send, false};
    if (current && transport->f_send == send_answer) {
        exchange.send = current->send;
    }
    const Send former = transport->f_send;
    current = &exchange;
    transport->f_send = send_answer;
    const int result = handle_snmp_packet(NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE, session, request_id, &pdu, nullptr);
    transport->f_send = former;
    current = exchange.outer;
    if (exchange.is_too_big) {
        answer_too_big(session, pdu);
    }
    return result;
}

// What a fault makes of a request that is not carried out, or not as it came.
int act_on_request(const Message &message, const Fault &fault, netsnmp_session *session, int request_id,
                   netsnmp_pdu &pdu) {
    switch (fault.action) {
    case CLIENT_FAULT_WRONG_REQUEST_ID:
        pdu.reqid ^= WRONG_ID_BIT;
        return serve(message, nullptr, session, request_id, pdu);
    case CLIENT_FAULT_ERROR_STATUS:
        answer_error(session, pdu, static_cast<long>(fault.value), static_cast<long>(fault.detail));
        break;
    case CLIENT_FAULT_REBOOT_ENGINE:
        reboot_engine();
        report_not_in_time_window(session, pdu);
        break;
    case CLIENT_FAULT_NOT_IN_TIME_WINDOW:
        report_not_in_time_window(session, pdu);
        break;
    case CLIENT_FAULT_UNKNOWN_ENGINE:
        report_unknown_engine(session, pdu);
        break;
    default: // lost
        break;
    }
    return 1;
}

// The callback of the sessions that receive requests.
int on_message(int operation, netsnmp_session *session, int request_id, netsnmp_pdu *pdu, void *magic) {
    const bool is_request = operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && !magic && pdu &&
                            session->s_snmp_errno != SNMPERR_USM_AUTHENTICATIONFAILURE;
    if (!is_request) {
        return handle_snmp_packet(operation, session, request_id, pdu, magic);
    }
    const Message message(*pdu, address_in(pdu->transport_data, pdu->transport_data_length));
    Fault *fault = next_fault(message);
    // Nobody who may not ask at all meets a fault, or hears from one that there is an agent.
    if (fault && check_access(pdu) != 0) {
        fault = nullptr;
    }
    for (; fault && !is_about_answers(*fault); fault = next_fault(message, fault)) {
        if (applies(*fault)) {
            return act_on_request(message, *fault, session, request_id, *pdu);
        }
    }
    if (!fault && !has_kept_for_next(false)) {
        return handle_snmp_packet(operation, session, request_id, pdu, magic);
    }
    return serve(message, fault, session, request_id, *pdu);
}

// The PDU that a message is made of. The agent sends messages of sessions in two places (for the
// first time, and again for want of an acknowledgement), and hands f_send the two members of the
// PDU that say where it goes.
const netsnmp_pdu *pdu_of(void **socket_address, const int *socket_address_size) {
    constexpr size_t at = offsetof(netsnmp_pdu, transport_data);
    constexpr ptrdiff_t apart = offsetof(netsnmp_pdu, transport_data_length) - at;
    const char *place = reinterpret_cast<const char *>(socket_address);
    if (!place || reinterpret_cast<const char *>(socket_address_size) - place != apart) {
        return nullptr;
    }
    return reinterpret_cast<const netsnmp_pdu *>(place - at);
}

// The f_send of the transports that notifications leave by.
int send_notification(netsnmp_transport *transport, const void *bytes, int size, void **socket_address,
                      int *socket_address_size) {
    const Send send = kind_of(transport)->send;
    const netsnmp_pdu *pdu = pdu_of(socket_address, socket_address_size);
    if (!pdu) {
        return send(transport, bytes, size, socket_address, socket_address_size);
    }
    const Message message(*pdu, address_in(transport->data, transport->data_length));
    const Outgoing outgoing = {transport,       send, bytes, size, socket_address, socket_address_size,
                               message.address, true};
    if ((message.type & CLIENT_FAULT_NOTIFICATION_PDUS) == 0) {
        return send_part(outgoing, size);
    }
    for (Fault *fault = next_fault(message); fault; fault = next_fault(message, fault)) {
        if (applies(*fault)) {
            return act_on(outgoing, *fault);
        }
    }
    return send_now(outgoing);
}

void intercept_requests(netsnmp_session &session, bool wanted) {
    session.callback = wanted ? on_message : handle_snmp_packet;
}

void intercept_notifications(netsnmp_transport &transport, Kind &kind, bool wanted) {
    if (!wanted) {
        if (transport.f_send == send_notification) {
            transport.f_send = kind.send;
        }
        return;
    }
    if (!kind.send) {
        kind.send = transport.f_send;
    }
    // One that shares another's socket has a way of its own, and is left alone.
    if (transport.f_send == kind.send) {
        transport.f_send = send_notification;
    }
}

void visit_sessions() {
    for (session_list *entry = Sessions; entry; entry = entry->next) {
        Kind *kind = kind_of(entry->transport);
        if (!kind || !entry->session) {
            continue;
        }
        if (entry->session->callback == handle_snmp_packet || entry->session->callback == on_message) {
            intercept_requests(*entry->session, sees_requests);
        } else {
            intercept_notifications(*entry->transport, *kind, sees_notifications);
        }
    }
}

// A session for notifications may be new. One that the agent opens for the very notification that is
// about to be sent is seen from the next one on.
int before_notification(int, int, void *, void *) {
    visit_sessions();
    return SNMP_ERR_NOERROR;
}

constexpr int BEFORE_NOTIFICATIONS[] = {SNMPD_CALLBACK_SEND_TRAP1, SNMPD_CALLBACK_SEND_TRAP2};

void watch_notifications(bool wanted) {
    if (wanted == sees_notifications) {
        return;
    }
    sees_notifications = wanted;
    for (const int moment : BEFORE_NOTIFICATIONS) {
        if (wanted) {
            netsnmp_register_callback(SNMP_CALLBACK_APPLICATION, moment, before_notification, nullptr,
                                      NETSNMP_CALLBACK_HIGHEST_PRIORITY);
        } else {
            snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, moment, before_notification, nullptr, TRUE);
        }
    }
}

// The agent's timer, or 0.
unsigned soon_timer = 0;

void on_soon(unsigned, void *) {
    soon_timer = 0;
    intercept_as_needed();
}

// A SET may make the agent unload this library, and returns through on_message: once anything has
// been replaced, the code stays mapped.
void stay_mapped() {
    static bool is_done = false;
    Dl_info self;
    if (!is_done && dladdr(reinterpret_cast<void *>(on_message), &self) != 0 && self.dli_fname) {
        is_done = dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
    }
}

} // namespace

void intercept_as_needed() {
    const bool wants_requests = has_faults(CLIENT_FAULT_REQUEST_PDUS) || has_kept_for_next(false);
    const bool wants_notifications = has_faults(CLIENT_FAULT_NOTIFICATION_PDUS) || has_kept_for_next(true);
    if (!wants_requests && !wants_notifications && !sees_requests && !sees_notifications) {
        return;
    }
    stay_mapped();
    sees_requests = wants_requests;
    watch_notifications(wants_notifications);
    visit_sessions();
}

void intercept_soon() {
    if (soon_timer == 0) {
        const timeval duration = {0, 1000};
        soon_timer = snmp_alarm_register_hr(duration, 0, on_soon, nullptr);
    }
}

void stop_intercepting() {
    if (soon_timer != 0) {
        snmp_alarm_unregister(soon_timer);
        soon_timer = 0;
    }
    drop_kept();
    intercept_as_needed();
}

} // namespace switch_agent
