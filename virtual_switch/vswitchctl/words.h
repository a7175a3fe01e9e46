/* Words that stand for numbers on the command line. */
#ifndef VSWITCHCTL_WORDS_H
#define VSWITCHCTL_WORDS_H

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "mts.h"
#include "mts/mts_wire.h"

namespace vswitchctl {

using Word = std::pair<std::string_view, std::uint32_t>;
using Words = std::span<const Word>;

inline constexpr Word interop_words[] = {{"none", 100}};
inline constexpr Word class_words[] = {{"failures", 100}, {"trace", 101}};
inline constexpr Word service_words[] = {{"vsan", MANAGER_SAP_VSAN},
                                         {"port", MANAGER_SAP_PORT},
                                         {"roles", MTS_SERVICE_ROLES},
                                         {"distribution", MTS_SERVICE_TDX}};
inline constexpr Word opcode_words[] = {{"vsan", 149},
                                        {"vsan-count", 125},
                                        {"last-change", 126},
                                        {"interface", 124},
                                        {"interface-count", 128},
                                        {"timer", 127},
                                        {"latency", 136},
                                        {"inorder-delivery", 140},
                                        {"status-events", 8018},
                                        {"switch-name", 1282},
                                        {"membership", MTS_OP_PORT_MEMBERSHIP},
                                        {"role-of-user", MTS_OP_ROLE_OF_USER},
                                        {"distribution-state", MTS_OP_TDX_STATE}};
inline constexpr Word kind_words[] = {{"get", 1}, {"get-next", 2}, {"set", 3}, {"delete", 4}, {"distributed-get", 5}};

/* The platform's statuses by name: no-such-vsan, store-failed, ... */
Words status_words();

} // namespace vswitchctl

#endif
