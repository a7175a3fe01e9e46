/* What the switch answers: the managers behind the socket, without the socket. */
#ifndef VSWITCH_SERVICES_H
#define VSWITCH_SERVICES_H

#include <compare>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "events.h"
#include "faults.h"
#include "records.h"
#include "roles.h"
#include "switch_model.h"

namespace vswitch {

class Store;

/* One request, as decoded from its frame. The views belong to the frame. */
struct Request {
    std::uint32_t service = 0;
    std::uint32_t opcode = 0;
    std::uint32_t kind = 0;
    std::uint32_t length = 0; /* as the caller gave it, also without payload */
    Bytes payload;
    std::string_view user; /* empty when there is none */
};

struct Reply {
    std::uint32_t status = 0;
    bool has_data = false;
    Buffer data;
};

/* Kinds of request. */
constexpr std::uint32_t kind_get = 1;
constexpr std::uint32_t kind_get_next = 2;
constexpr std::uint32_t kind_set = 3;
constexpr std::uint32_t kind_delete = 4;
constexpr std::uint32_t kind_distributed_get = 5;

/* What the daemon has served since it started. */
struct Counters {
    struct Key {
        std::uint32_t service, opcode, kind;
        auto operator<=>(const Key &) const = default;
    };
    std::map<Key, std::uint64_t> requests;
    std::uint64_t connections = 0;         /* open now */
    std::uint64_t dropped_connections = 0; /* closed by the daemon because of what they sent or did not read */
    std::uint64_t refused_connections = 0; /* of processes that may not connect */
    std::uint64_t subscriptions = 0;       /* event classes subscribed to, over all open connections */
};

/* Everything that an answer may depend on. */
struct Switch {
    SwitchModel model;
    Roles roles;
    Counters counters;
    EventHub events;
    Faults faults;
    Store *store;              /* where changes are kept; null: they last as long as this object */
    std::string role_file;     /* where roles are kept; empty: likewise */
    std::string run_directory; /* where the agent leaves its files; empty: nowhere */

    Switch(SwitchData data, Roles initial_roles, Store *keeper = nullptr, std::string file_of_roles = "")
        : model(std::move(data)), roles(std::move(initial_roles)), store(keeper), role_file(std::move(file_of_roles)) {}
};

/*
 * One row of a manager's request table: exactly one of `answer`, for a request that only
 * looks, and `change`. Either appends the reply's data, if it has any, and returns the
 * status. It is called only with a payload whose length the row allows.
 */
struct Operation {
    std::uint32_t opcode;
    std::uint32_t kind;
    bool has_payload;
    std::uint32_t min_length;
    std::uint32_t max_length;
    std::uint32_t (*answer)(const Switch &, const Request &, Buffer &data);
    std::uint32_t (*change)(Switch &, const Request &, Buffer &data) = nullptr;
};

/* The managers' request tables, each in its own file. */
std::span<const Operation> vsan_manager_operations();
std::span<const Operation> port_manager_operations();
std::span<const Operation> switch_service_operations();
std::span<const Operation> role_service_operations();
std::span<const Operation> distribution_service_operations();

/* Answers one request and counts it. `reply` is overwritten; its buffer is reused. The
 * events of a change are published, and wait in target.events to be delivered. A manager's
 * refusal carries no data; that of the switch's own service may. */
void answer_request(Switch &target, const Request &request, Reply &reply);

} // namespace vswitch

#endif
