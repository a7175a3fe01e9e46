// SPDX-License-Identifier: Apache-2.0
#include "agent_in_process.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/eventfd.h>
#include <sys/select.h>

#include "agent_startup.h"
#include "vsan_mib_exports.h"

#include <net-snmp/agent/agent_callbacks.h>

namespace {

const std::vector<uint8_t> *incoming;
std::vector<std::vector<uint8_t>> outgoing;
netsnmp_transport *transport;

constexpr oid udp_domain[] = {1, 3, 6, 1, 6, 1, 1};

int receive(netsnmp_transport *, void *buffer, int size, void **address, int *address_length) {
    *address = nullptr;
    *address_length = 0;
    if (incoming == nullptr || incoming->size() > static_cast<size_t>(size)) {
        return -1;
    }
    memcpy(buffer, incoming->data(), incoming->size());
    return static_cast<int>(incoming->size());
}

int transmit(netsnmp_transport *, const void *buffer, int size, void **, int *) {
    const auto *first = static_cast<const uint8_t *>(buffer);
    outgoing.emplace_back(first, first + size);
    return size;
}

int close_nothing(netsnmp_transport *) {
    return 0;
}

// The agent neither checks nor logs where a message comes from when its address begins so.
char *address_text(netsnmp_transport *, const void *, int) {
    return strdup("callback: fuzzing");
}

// Comes after the agent's own access control, which knows no community.
int grant_everything(int, int, void *question, void *) {
    static_cast<view_parameters *>(question)->errorcode = 0;
    return 0;
}

int drop_line(netsnmp_log_handler *, int, const char *) {
    return 1;
}

// A transport of messages as UDP is one. The descriptor is never read; it is the name by
// which the agent's library knows its sessions.
netsnmp_transport *make_transport() {
    auto *made = static_cast<netsnmp_transport *>(calloc(1, sizeof(netsnmp_transport)));
    if (made == nullptr) {
        abort();
    }
    made->domain = udp_domain;
    made->domain_length = static_cast<int>(OID_LENGTH(udp_domain));
    made->sock = eventfd(0, EFD_CLOEXEC);
    made->msgMaxSize = 65507;
    made->f_recv = receive;
    made->f_send = transmit;
    made->f_close = close_nothing;
    made->f_fmtaddr = address_text;
    return made;
}

} // namespace

void start_agent() {
    start_agent_without_files("fuzzing", drop_line);
    init_vsan_mib();
    init_snmp("fuzzing");
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK, grant_everything, nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, grant_everything, nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_SUBTREE, grant_everything, nullptr);
    transport = make_transport();
    if (transport->sock < 0 || netsnmp_register_agent_nsap(transport) <= 0) {
        fputs("the agent did not start\n", stderr);
        abort();
    }
}

std::vector<std::vector<uint8_t>> exchange(const std::vector<uint8_t> &message) {
    incoming = &message;
    outgoing.clear();
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(transport->sock, &readable);
    snmp_read(&readable);
    incoming = nullptr;
    return std::move(outgoing);
}
