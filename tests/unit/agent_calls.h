// SPDX-License-Identifier: Apache-2.0
// The agent's side of the module: what the module registers is caught here, and its
// handlers are called from that registration as the agent would call them.
//
// The calls that the module makes of the agent's library and that a test wants to see
// are redirected by the linker (--wrap): register_mib and unregister_mib go no
// further, snmp_set_detail goes on to the agent, the debugging calls are recorded, the
// uptime is the agent's unless a test sets another, malloc and calloc can be made to fail, and free watches over the
// reply buffers and the module's VSAN records.
#ifndef AGENT_CALLS_H
#define AGENT_CALLS_H

#include "vsan_mib_exports.h"
#include "vsan_mib_registration.h"
#include "vsan_mib_state.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "wire_bytes.h"

using oid_name = std::vector<oid>;

// The largest value of one arc that a message can carry, as an oid.
constexpr oid largest_arc = 4294967295u;

// One call of register_mib.
struct registration {
    std::string descriptor;
    size_t width = 0;
    std::vector<variable7> rows;
    oid_name root;
};

class scripted_agent {
  public:
    void reset() { *this = scripted_agent(); }

    int register_result = MIB_REGISTERED_OK;
    bool debugging = false;

    // What netsnmp_timeval_uptime returns, for any time; the agent's own answer without it.
    std::optional<u_long> uptime;

    std::vector<registration> registrations;
    std::vector<oid_name> unregistered;
    std::vector<std::string> details; // texts of snmp_set_detail
    std::vector<std::string> debug;   // "function token text" of the agent's debugging

    // How many allocations succeed before one fails; the later ones succeed again.
    std::optional<unsigned> allocations_before_failure;
    unsigned allocations_failed = 0;

    // Allocations of a VSAN record's size that nobody has released yet.
    std::set<void *> records_held;
};

extern scripted_agent agent;

// What a read handler answered.
struct read_answer {
    bool present = false; // false for null
    const u_char *value = nullptr;
    size_t length = 0;
    oid_name name; // the name that the handler left behind
    WriteMethod *write_method = nullptr;

    // The value as the 32-bit number that it must be.
    int64_t number() const;
    // The value as text.
    std::string text() const;
};

// One registered object, as the agent hands it to its handler.
class registered_object {
  public:
    // The object with this magic in the latest registration, which must have it.
    explicit registered_object(uint8_t magic);

    // The object's full name, and the same with arcs behind it.
    oid_name name() const { return {var.name, var.name + var.namelen}; }
    oid_name instance(std::initializer_list<oid> arcs) const;

    // GET and GETNEXT of any name.
    read_answer get(const oid_name &asked) { return read(asked, 1); }
    read_answer get_next(const oid_name &asked) { return read(asked, 0); }
    read_answer read(const oid_name &asked, int exact, WriteMethod *write_method = nullptr);

    variable var;
};

// GET of one instance of an object.
read_answer get(uint8_t magic, std::initializer_list<oid> instance);
// GETNEXT of an object from one instance, or from the object itself.
read_answer get_next(uint8_t magic, std::initializer_list<oid> instance);

// A write method called as the agent does it: the value lies in a buffer of just its
// length.
int write(WriteMethod *method, int phase, uint8_t type, const bytes &value);
// The same for the instance `name`, which lies in a buffer of just its length too.
int write(WriteMethod *method, int phase, uint8_t type, const bytes &value, const oid_name &name);

// A number as this agent passes an INTEGER or Unsigned32: one C long.
bytes as_long(int64_t number);
// A number of 64 bits, whatever the size of this agent's long.
bytes as_eight_bytes(int64_t number);
// The first `length` bytes of a 32-bit number in host order.
bytes as_word(uint32_t number, size_t length = 4);

#endif
