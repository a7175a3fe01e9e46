// SPDX-License-Identifier: Apache-2.0
// A SET PDU taken through its phases as the agent does it: each phase goes over all
// varbinds, grouped by object in the order in which the objects first appear, and goes
// on to its end after an error. A failed RESERVE1 or RESERVE2 is followed by FREE for
// all, a failed ACTION by UNDO for all and then one FREE pass.
#ifndef SET_PDU_H
#define SET_PDU_H

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent_calls.h"

enum set_phase { RESERVE1_PHASE, RESERVE2_PHASE, ACTION_PHASE, COMMIT_PHASE, FREE_PHASE, UNDO_PHASE };

struct varbind {
    uint8_t magic;
    std::vector<oid> instance;
    uint8_t type;
    bytes value;
};

// Varbinds of the VSAN table, with the value as this agent passes it.
varbind integer(uint8_t magic, oid vsan, int64_t number);
varbind unsigned32(uint8_t magic, oid vsan, int64_t number);
varbind octets(uint8_t magic, oid vsan, const std::string &text);

// The columns by their rules.
varbind name_of(oid vsan, const std::string &text);
varbind admin_state_of(oid vsan, int64_t state);
varbind load_balancing_of(oid vsan, int64_t type);
varbind row_status_of(oid vsan, int64_t status);
varbind interop_of(oid vsan, int64_t mode);
varbind inorder_of(oid vsan, int64_t setting);
varbind drop_latency_of(oid vsan, int64_t latency);

// RowStatus as SNMPv2-TC numbers it.
constexpr int64_t row_active = 1;
constexpr int64_t row_not_in_service = 2;
constexpr int64_t row_not_ready = 3;
constexpr int64_t row_create_and_go = 4;
constexpr int64_t row_create_and_wait = 5;
constexpr int64_t row_destroy = 6;

// How a PDU ended.
struct set_outcome {
    int error = 0;       // of the first varbind that failed
    size_t position = 0; // its position in the PDU, from 1; 0 for success
};

inline bool operator==(const set_outcome &a, const set_outcome &b) {
    return a.error == b.error && a.position == b.position;
}
std::ostream &operator<<(std::ostream &out, const set_outcome &outcome);

class set_pdu {
  public:
    // Starts a PDU.
    explicit set_pdu(std::vector<varbind> varbinds);

    // Called just before a phase of `run` begins: where somebody else changes the switch.
    std::function<void(set_phase)> before;

    // The whole PDU.
    set_outcome run();

    // One phase over all varbinds; RESERVE1 has to come first.
    set_outcome phase(set_phase phase);

    // What UNDO and the phases that release returned; all 0 in a module that obeys.
    std::vector<int> later_errors;

  private:
    struct bound_object {
        size_t position;
        uint8_t magic;
        uint8_t type;
        std::unique_ptr<u_char[]> value; // just as long as it is
        size_t value_length;
        oid_name name;
        WriteMethod *method = nullptr;
        u_char *current = nullptr; // what the read handler returned
    };

    int call(bound_object &object, set_phase phase);
    int reserve1(bound_object &object);
    void begin(set_phase next);

    std::vector<bound_object> objects; // in the order of the calls
};

// The whole of a PDU during which nobody else changes the switch.
inline set_outcome run_set(std::vector<varbind> varbinds) {
    return set_pdu(std::move(varbinds)).run();
}

#endif
