/* A switch's configuration as plain data: what the initial file describes, what the
 * database holds and what the running switch is made from. */
#ifndef VSWITCH_SWITCH_DATA_H
#define VSWITCH_SWITCH_DATA_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace vswitch {

/* The switch cannot run, or a file cannot be used. The text is one sentence for the
 * operator; it names the file and says what to do where that is not obvious. */
class Refusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

constexpr std::uint32_t default_vsan = 1; /* always exists; ports without another VSAN are in it */
constexpr std::uint32_t max_vsan = 4095;
constexpr std::size_t max_vsan_name = 32;    /* what a user may give */
constexpr std::size_t vsan_rest_size = 2032; /* see Vsan::rest */

constexpr std::uint32_t vsan_active = 1;
constexpr std::uint32_t vsan_suspended = 2;
constexpr std::uint32_t vsan_not_configured = 3; /* in events only: the VSAN is gone */
constexpr std::uint32_t media_fibre_channel = 1;
constexpr std::uint32_t default_interop = 100; /* "no interoperability mode" */
constexpr std::uint32_t max_interop = 4;       /* the greatest mode, the least is 1 */
constexpr std::uint32_t max_load_balancing = 2;
constexpr std::uint32_t max_mtu = 65535;
constexpr std::uint32_t max_latency = 60000; /* milliseconds */

/* TruthValue of the SNMP conventions. */
constexpr std::uint32_t truth_true = 1;
constexpr std::uint32_t truth_false = 2;

/* The fabric timers, numbered as the manager's attribute keys. All are in milliseconds. */
enum class Timer : std::uint32_t { e_d_tov = 7, r_a_tov = 8, d_s_tov = 9, f_s_tov = 10 };
constexpr Timer all_timers[] = {Timer::e_d_tov, Timer::r_a_tov, Timer::d_s_tov, Timer::f_s_tov};
constexpr std::size_t timer_count = std::size(all_timers);

/* The timer of an attribute key, or nothing when the key is no timer's. */
constexpr std::optional<Timer> timer_of_key(std::uint32_t key) {
    if (key < 7 || key > 10)
        return std::nullopt;
    return static_cast<Timer>(key);
}

/* One value a timer, the array's order being that of the keys. */
template <typename Value> class TimerArray {
  public:
    Value &operator[](Timer timer) { return values_[static_cast<std::size_t>(timer) - 7]; }
    const Value &operator[](Timer timer) const { return values_[static_cast<std::size_t>(timer) - 7]; }
    bool operator==(const TimerArray &) const = default;

  private:
    std::array<Value, timer_count> values_{};
};
using Timers = TimerArray<std::uint32_t>;
using PartialTimers = TimerArray<std::optional<std::uint32_t>>;

struct Vsan {
    std::string name;
    std::uint32_t media = media_fibre_channel;
    std::uint32_t admin_state = vsan_active;
    std::uint32_t mtu = 2112;
    std::uint32_t load_balancing = max_load_balancing; /* source, destination and exchange id */
    std::uint32_t interop = default_interop;
    std::uint32_t inorder_delivery = truth_false;
    std::uint32_t drop_latency = 500; /* milliseconds */
    PartialTimers timers;             /* where unset, the switch-wide value holds */
    PartialTimers distributed_timers; /* the distribution service's own record */
    /* The part of the record that clients hand back as they got it: empty, which
     * stands for zeros, or vsan_rest_size bytes. */
    std::vector<std::uint8_t> rest;

    bool operator==(const Vsan &) const = default;
};

struct Port {
    std::uint32_t vsan = default_vsan;
    std::uint32_t deny_list = 0;
    bool link_up = true;

    bool operator==(const Port &) const = default;
};

/* The distribution service's open session: fabric timers that are changed and not yet
 * committed. Switch-wide values stand under VSAN number 0. */
struct TimerSession {
    std::string user; /* who holds it; may be empty */
    std::map<std::uint32_t, PartialTimers> pending;

    bool operator==(const TimerSession &) const = default;
};

struct Settings {
    std::uint64_t wwn = 0;            /* the switch's world wide name, drawn once */
    std::uint64_t change_seconds = 0; /* wall clock of the last configuration change */
    std::uint32_t change_microseconds = 0;
    Timers timers;
    std::uint32_t switch_latency = 500;   /* milliseconds */
    std::uint32_t network_latency = 2000; /* milliseconds */
    std::uint32_t inorder_delivery = truth_false;
    bool tdx_enabled = false;  /* the distribution service governs the fabric timers */
    bool tdx_show_run = false; /* ... but reads show the running configuration */
    bool tdx_refusing = false; /* ... but has no fabric and refuses reads and commits */
    bool status_events = true; /* VSAN events are published */

    Settings();
    bool operator==(const Settings &) const = default;
};

struct SwitchData {
    Settings settings;
    std::map<std::uint32_t, Vsan> vsans; /* by VSAN number */
    std::map<std::uint32_t, Port> ports; /* by ifIndex */
    std::optional<TimerSession> session;

    bool operator==(const SwitchData &) const = default;
};

/* One change of a switch's configuration: whole rows with their new values. It comes into
 * force as a whole or not at all. */
struct Change {
    std::optional<Settings> settings;
    std::map<std::uint32_t, Vsan> vsans;   /* new or changed */
    std::map<std::uint32_t, Port> ports;   /* changed */
    std::set<std::uint32_t> deleted_vsans; /* `ports` moves their ports away */

    /* The distribution service's session: it ends, or is opened by a user; values are
     * added to what is pending. */
    struct PendingTimer {
        std::uint32_t vsan; /* 0: switch-wide */
        Timer timer;
        std::uint32_t value;
    };
    bool ends_session = false;
    std::optional<std::string> opens_session;
    std::vector<PendingTimer> pending;
};

inline Settings::Settings() {
    timers[Timer::e_d_tov] = 2000;
    timers[Timer::r_a_tov] = 10000;
    timers[Timer::d_s_tov] = 5000;
    timers[Timer::f_s_tov] = 5000;
}

} // namespace vswitch

#endif
