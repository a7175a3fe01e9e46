// SPDX-License-Identifier: Apache-2.0
// Words that stand for numbers on the command line and in what is printed.
#ifndef VSWITCHCTL_WORDS_H
#define VSWITCHCTL_WORDS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/attributes.h"
#include "contract/client_faults.h"
#include "contract/events.h"
#include "contract/interfaces.h"
#include "contract/run_directory.h"
#include "contract/services.h"

namespace vswitchctl {

using Word = std::pair<std::string_view, uint32_t>;
using Words = std::span<const Word>;

#define TOOL_WORD(number, name, word) Word{word, number},
inline constexpr Word state_words[] = {ADMIN_STATES(TOOL_WORD)};
inline constexpr Word oper_words[] = {OPER_STATES(TOOL_WORD)};
inline constexpr Word load_balancing_words[] = {LOAD_BALANCINGS(TOOL_WORD)};
inline constexpr Word class_words[] = {TRACE_CLASSES(TOOL_WORD)};
inline constexpr Word service_words[] = {MTS_SERVICES(TOOL_WORD)};
inline constexpr Word opcode_words[] = {MTS_OPCODES(TOOL_WORD)};
inline constexpr Word kind_words[] = {MTS_KINDS(TOOL_WORD)};
#undef TOOL_WORD
#define PORT_CHANGE_WORD(number, name, word) Word{word, number},
inline constexpr Word port_change_words[] = {PORT_CHANGES(PORT_CHANGE_WORD)};
#undef PORT_CHANGE_WORD
#define SYSTEM_TEXT_WORD(number, name, word, initial) Word{word, number},
inline constexpr Word system_text_words[] = {SYSTEM_TEXTS(SYSTEM_TEXT_WORD)};
#undef SYSTEM_TEXT_WORD
#define TIMER_WORD(key, name, word, least, greatest, initial) Word{word, key},
#define LATENCY_WORD(key, name, word, tool_word, initial) Word{tool_word, key},
inline constexpr Word attribute_words[] = {FABRIC_TIMERS(TIMER_WORD) SWITCH_LATENCIES(LATENCY_WORD)};
#undef TIMER_WORD
#undef LATENCY_WORD
inline constexpr Word interop_words[] = {{"none", VSAN_INTEROP_NONE}};

#define TIMER_WORD(key, name, word, least, greatest, initial) word,
inline constexpr const char *timer_words[] = {FABRIC_TIMERS(TIMER_WORD)};
#undef TIMER_WORD

// A port's counters: the word here, and that of the switch's commands.
struct Counter {
    const char *word;
    const char *key;
};
#define COUNTER(name, word, tool_word) {tool_word, word},
inline constexpr Counter counters[] = {PORT_COUNTERS(COUNTER)};
#undef COUNTER

#define TOOL_WORD(number, word) Word{word, number},
inline constexpr Word error_words[] = {SNMP_ERROR_STATUSES(TOOL_WORD)};
#undef TOOL_WORD

// A fault of the agent's clients.
struct ClientFaultWord {
    std::string_view word;
    client_fault_about about;
    client_fault_value value;
};
#define CLIENT_FAULT_WORD(number, name, word, about, value) {word, about, value},
inline constexpr ClientFaultWord client_fault_words[] = {CLIENT_FAULT_ACTIONS(CLIENT_FAULT_WORD)};
#undef CLIENT_FAULT_WORD

// A setting of the whole switch that is no timer: its word here, and that of the switch's commands.
struct Setting {
    const char *word;
    const char *key;
};
#define LATENCY_SETTING(key, name, word, tool_word, initial) {tool_word, word},
inline constexpr Setting latencies[] = {SWITCH_LATENCIES(LATENCY_SETTING)};
#undef LATENCY_SETTING
inline constexpr Setting inorder_delivery = {"inorder-delivery", "inorderDelivery"};

// The word of a number, or "none" where it has none.
std::string word_of(Words words, uint32_t number);

// The words alone.
std::vector<std::string> texts_of(Words words);

// What `timers set` takes.
std::vector<std::string> setting_words();

// The platform's statuses by name: no-such-vsan, store-failed, ...
Words status_words();

} // namespace vswitchctl

#endif
