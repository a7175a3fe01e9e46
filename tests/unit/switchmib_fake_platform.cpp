// SPDX-License-Identifier: Apache-2.0
#include "switchmib_fake_platform.h"

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "agent_startup.h"
#include "contract/big_endian.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "netsnmpagent_oryx.h"
#include "netsnmpagent_oryx/requester.h"

FakePlatform fake_platform;

void reset_fake_platform() {
    // PDU numbers go on: what was read for one test is nothing to the next.
    const uint32_t pdu = fake_platform.pdu + 1;
    fake_platform = {};
    fake_platform.pdu = pdu;
}

PortRecord port_record(uint32_t if_index) {
    PortRecord record = {};
    write_be32(&record[PORT_RECORD_IF_INDEX], if_index);
    write_be32(&record[PORT_RECORD_NUMBER], if_index);
    write_be32(&record[PORT_RECORD_ADMIN], PORT_UP);
    write_be32(&record[PORT_RECORD_OPER], PORT_UP);
    write_be32(&record[PORT_RECORD_SPEED], PORT_SPEED_DEFAULT);
    write_be32(&record[PORT_RECORD_TRAPS], PORT_TRAPS_ENABLED);
    return record;
}

namespace {

uint32_t answer(const std::vector<uint8_t> &bytes, void **reply, uint32_t *length) {
    // Exactly as large as the reply, so that a read past its end is seen.
    *reply = malloc(bytes.empty() ? 1 : bytes.size());
    if (!bytes.empty()) {
        memcpy(*reply, bytes.data(), bytes.size());
    }
    *length = static_cast<uint32_t>(bytes.size());
    return fake_platform.status;
}

uint32_t answer_port(uint32_t kind, uint32_t key, void **reply, uint32_t *length) {
    const auto &ports = fake_platform.ports;
    const auto found = kind == MTS_KIND_GET ? ports.find(key) : ports.upper_bound(key);
    if (found == ports.end()) {
        return kind == MTS_KIND_GET ? STATUS_NO_SUCH_INTERFACE : STATUS_NO_MORE_INTERFACES;
    }
    return answer({found->second.begin(), found->second.end()}, reply, length);
}

int keep_line(netsnmp_log_handler *, int, const char *line) {
    fake_platform.log += line;
    return 1;
}

class Agent : public testing::Environment {
  public:
    void SetUp() override {
        start_agent_without_files("switchmib_test", keep_line);
        init_snmp("switchmib_test");
    }
    void TearDown() override {
        snmp_shutdown("switchmib_test");
        shutdown_agent();
        shutdown_snmp_logging();
    }
};

} // namespace

extern "C" {

mts_queue *mts_response_q = nullptr;

uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length, const char *,
                      uint32_t, uint32_t, mts_queue *, uint32_t) {
    ++fake_platform.requests;
    const auto *bytes = static_cast<const uint8_t *>(payload);
    fake_platform.asked.assign(bytes, bytes ? bytes + *length : bytes);
    if (fake_platform.reply) {
        return answer(*fake_platform.reply, reply, length);
    }
    if (opcode != MTS_OP_PORT || fake_platform.status != 0) {
        return fake_platform.status;
    }
    return answer_port(kind, read_be32(static_cast<const uint8_t *>(payload)), reply, length);
}

const void *mts_payload_get(const mts_message *message) {
    return message->payload.empty() ? nullptr : message->payload.data();
}

uint32_t mts_payload_size(const mts_message *message) {
    return static_cast<uint32_t>(message->payload.size());
}

const char *get_snmp_username(int) {
    return "alice";
}

uint32_t get_snmp_sessionid(int) {
    return 0;
}

uint32_t get_pdu_reqid(void) {
    return fake_platform.pdu;
}

void log_set_error(uint32_t, uint32_t) {}

int snmp_get_allowed_vsans_subtree(allowed_vsan_list *, const oid *, size_t, int) {
    return fake_platform.role.has_value();
}

int intf_chk_vsan_role_allowed(uint32_t if_index, int, allowed_vsan_list) {
    return fake_platform.role && !fake_platform.role->contains(if_index);
}

int register_for_notification(uint32_t event_class, notification_callback callback) {
    fake_platform.classes.insert(event_class);
    fake_platform.callbacks[event_class] = callback;
    return 0;
}

void unregister_for_notification(uint32_t event_class) {
    fake_platform.classes.erase(event_class);
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *list, const void *value, uint8_t type, size_t length,
                                     const oid *name, size_t name_length) {
    snmp_varlist_add_variable(&list, name, name_length, type, value, length);
    return list;
}

int oryx_note_requester(netsnmp_handler_registration *) {
    return 0;
}

} // extern "C"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new Agent);
    return RUN_ALL_TESTS();
}
