// SPDX-License-Identifier: Apache-2.0
// A switch's configuration as plain data: what the initial file describes, what the
// database holds and what the running switch is made from.
#ifndef VSWITCH_SWITCH_DATA_H
#define VSWITCH_SWITCH_DATA_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "contract/attributes.h"
#include "contract/interfaces.h"
#include "contract/records.h"
#include "model/switch_clock.h"

namespace vswitch {

// The fabric timers, numbered as the manager's attribute keys. All are in milliseconds.
enum class Timer : uint32_t {
    e_d_tov = ATTRIBUTE_E_D_TOV,
    r_a_tov = ATTRIBUTE_R_A_TOV,
    d_s_tov = ATTRIBUTE_D_S_TOV,
    f_s_tov = ATTRIBUTE_F_S_TOV
};

struct TimerKind {
    Timer timer;
    const char *word; // of configuration files and commands
    uint32_t least, greatest, initial;
};
#define VSWITCH_TIMER(key, name, word, least, greatest, initial)                                                       \
    {static_cast<Timer>(key), word, least, greatest, initial},
inline constexpr TimerKind timer_kinds[] = {FABRIC_TIMERS(VSWITCH_TIMER)};
#undef VSWITCH_TIMER

constexpr size_t position_of(Timer timer) {
    return static_cast<size_t>(timer) - static_cast<size_t>(timer_kinds[0].timer);
}
constexpr const TimerKind &kind_of(Timer timer) {
    return timer_kinds[position_of(timer)];
}
static_assert(&kind_of(Timer::e_d_tov) == timer_kinds && &kind_of(Timer::f_s_tov) == std::end(timer_kinds) - 1,
              "the keys of the timers follow each other");

// The timer of an attribute key, or nothing when the key is no timer's.
constexpr std::optional<Timer> timer_of_key(uint32_t key) {
    for (const TimerKind &kind : timer_kinds) {
        if (key == static_cast<uint32_t>(kind.timer)) {
            return kind.timer;
        }
    }
    return std::nullopt;
}

// One value a timer.
template <typename Value> class TimerArray {
  public:
    Value &operator[](Timer timer) { return values_[position_of(timer)]; }
    const Value &operator[](Timer timer) const { return values_[position_of(timer)]; }
    bool operator==(const TimerArray &) const = default;

  private:
    std::array<Value, std::size(timer_kinds)> values_{};
};
using Timers = TimerArray<uint32_t>;
using PartialTimers = TimerArray<std::optional<uint32_t>>;

struct Vsan {
    std::string name;
    uint32_t media = MEDIA_FIBRE_CHANNEL;
    uint32_t admin_state = ADMIN_STATE_ACTIVE;
    uint32_t mtu = 2112;
    uint32_t load_balancing = LOAD_BALANCING_EXCHANGES;
    uint32_t interop = VSAN_INTEROP_NONE;
    uint32_t inorder_delivery = TRUTH_FALSE;
    uint32_t drop_latency = 500;      // milliseconds
    PartialTimers timers;             // where unset, the switch-wide value holds
    PartialTimers distributed_timers; // the distribution service's own record
    // The part of the record that clients hand back as they got it: empty, which
    // stands for zeros, or VSAN_REST_SIZE bytes.
    std::vector<uint8_t> rest;

    bool operator==(const Vsan &) const = default;
};

// A port's simulated traffic: what each of its counters, an enum port_counter, grows by in a second.
using PortRates = std::array<uint32_t, PORT_COUNTER_COUNT>;

struct Port {
    uint32_t vsan = VSAN_NUMBER_DEFAULT;
    uint32_t deny_list = 0;
    bool link_up = true; // its cable is in
    bool enabled = true; // its administrative state
    std::string alias{};
    uint32_t speed = PORT_SPEED_DEFAULT; // Mbit/s
    bool traps = true;                   // its changes of state may be told as SNMP notifications
    PortRates traffic{};
    Timestamp last_change{}; // of is_up(), by the clock of the run that made it; 0 for never

    // Its operational state.
    bool is_up() const { return link_up && enabled; }
    bool operator==(const Port &) const = default;
};

// The life of the distribution service of the fabric timers:
//
//              it is enabled            the first change of a timer
//     off  ---------------------> idle -----------------------------> in session
//          <---------------------      <-----------------------------
//              it is disabled           commit, abort
//
// While it is off, a change comes into force at once. Else it waits in the session until it is
// committed; the service is not disabled meanwhile. In any state two settings stand beside: in
// show-run mode reads show the running configuration, and without a fabric the service refuses
// reads and commits.
enum class Distribution { off, idle, in_session };

// The distribution service's open session: fabric timers that are changed and not yet
// committed. Switch-wide values stand under VSAN number 0.
struct DistributionSession {
    std::string user; // who holds it; may be empty
    std::map<uint32_t, PartialTimers> pending;

    bool operator==(const DistributionSession &) const = default;
};

// What the switch says of itself; an enum system_text chooses one.
using SystemTexts = std::array<std::string, SYSTEM_TEXT_COUNT>;

struct Settings {
    uint64_t wwn = 0;      // the switch's world wide name, drawn once
    Timestamp last_change; // of the VSAN table, by the clock of the run that made it
    Timers timers;
    uint32_t switch_latency = 0;  // milliseconds
    uint32_t network_latency = 0; // milliseconds
    uint32_t inorder_delivery = TRUTH_FALSE;
    bool tdx_enabled = false;  // the distribution service is not off, see Distribution
    bool tdx_show_run = false; // show-run mode
    bool tdx_refusing = false; // it has no fabric
    bool status_events = true; // VSAN events are published
    SystemTexts system;

    Settings();
    bool operator==(const Settings &) const = default;
};

struct SwitchData {
    Settings settings;
    std::map<uint32_t, Vsan> vsans; // by VSAN number
    std::map<uint32_t, Port> ports; // by ifIndex
    std::optional<DistributionSession> session;

    bool operator==(const SwitchData &) const = default;
};

// One change of a switch's configuration: whole rows with their new values. It comes into
// force as a whole or not at all.
struct Change {
    std::optional<Settings> settings;
    std::map<uint32_t, Vsan> vsans;   // new or changed
    std::map<uint32_t, Port> ports;   // changed
    std::set<uint32_t> deleted_vsans; // `ports` moves their ports away

    // What becomes of the distribution service's session, see Distribution; values are added to
    // what is pending. One that restarts ends, and another opens in its place.
    enum class Session { stays, opens, ends, restarts };
    struct PendingTimer {
        uint32_t vsan; // 0: switch-wide
        Timer timer;
        uint32_t value;
    };
    Session session = Session::stays;
    std::string holder; // of a session that opens or restarts
    std::vector<PendingTimer> pending;

    bool ends_session() const { return session == Session::ends || session == Session::restarts; }
    bool opens_session() const { return session == Session::opens || session == Session::restarts; }
};

// A latency of the whole switch, numbered as the manager's attribute keys.
struct LatencyKind {
    uint32_t key;
    const char *word; // of configuration files and commands
    uint32_t initial;
    uint32_t Settings::*setting;
};
inline constexpr uint32_t Settings::*latency_settings[] = {&Settings::switch_latency, &Settings::network_latency};
#define VSWITCH_LATENCY(key, name, word, tool_word, initial)                                                           \
    {key, word, initial, latency_settings[(key)-ATTRIBUTE_SWITCH_LATENCY]},
inline constexpr LatencyKind latency_kinds[] = {SWITCH_LATENCIES(VSWITCH_LATENCY)};
#undef VSWITCH_LATENCY

inline Settings::Settings() {
    for (const TimerKind &kind : timer_kinds) {
        timers[kind.timer] = kind.initial;
    }
    for (const LatencyKind &kind : latency_kinds) {
        this->*kind.setting = kind.initial;
    }
#define VSWITCH_SYSTEM_TEXT(number, name, word, initial) system[name] = initial;
    SYSTEM_TEXTS(VSWITCH_SYSTEM_TEXT)
#undef VSWITCH_SYSTEM_TEXT
}

} // namespace vswitch

#endif
