// SPDX-License-Identifier: Apache-2.0
// The life of a write, the same for a port's settings and the system's texts:
//
//   RESERVE1  the owner of the object checks access, type, length and value.
//   RESERVE2  the owner looks up what is there and stages two settings beside the varbind: the
//             one to be made and the one that was there before any varbind of the PDU.
//   ACTION    the setting is sent.
//   UNDO      what was sent, or may have been carried out without an answer, is put back.
//   COMMIT, FREE  nothing; the agent drops what is staged with the varbind.
#ifndef AGENT_SETTING_H
#define AGENT_SETTING_H

#include <cstddef>
#include <cstdint>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "contract/interfaces.h"

namespace switch_agent {

// What the port manager is sent with kind SET: the payload of MTS_OP_PORT or MTS_OP_SYSTEM.
struct Setting {
    uint32_t opcode;
    uint32_t length; // of the payload, in bytes
    uint8_t payload[SYSTEM_SETTING_VALUE + SYSTEM_TEXT_MAX];
};

// A port's setting with a word for its value, or with an alias of at most PORT_ALIAS_MAX bytes.
Setting port_word_setting(uint32_t if_index, uint32_t key, uint32_t word);
Setting port_alias_setting(uint32_t if_index, const void *text, size_t length);

// One of the system's texts (a system_text), of at most SYSTEM_TEXT_MAX bytes.
Setting system_text_setting(uint32_t which, const void *text, size_t length);

// Says why a text cannot be written: wrongType, wrongLength, or wrongValue where it is none that the
// switch keeps (contract/plain_text.h); noError when it can be.
int check_text(const netsnmp_variable_list &varbind, size_t longest);

// Stages a write and what takes it back. Returns noError, or resourceUnavailable without memory.
int stage_setting(netsnmp_request_info &request, const Setting &change, const Setting &former);

// Sends what is staged for a varbind. Returns noError or why not.
int send_setting(netsnmp_request_info &request);

// Puts back what was there. Returns noError, or undoFailed when the switch did not do it.
int undo_setting(netsnmp_request_info &request);

} // namespace switch_agent

#endif
