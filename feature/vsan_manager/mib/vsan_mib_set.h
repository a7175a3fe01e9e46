// SPDX-License-Identifier: Apache-2.0
// A SET: what each kind of write does in each phase, and what a value must be.
//
// The agent calls a write method once for every varbind in a phase, and runs a phase over all
// varbinds of the PDU before the next. A phase returns an SNMP error status, and the first that
// is not noError ends the PDU: with FREE after RESERVE1 and RESERVE2, with UNDO after ACTION.
//
//   RESERVE1   Checks type, length, value, instance and permission, in this order. Sends nothing
//              but lookups. Row status alone stages something here: its row, or its undo copy.
//   RESERVE2   Takes what ACTION needs. Columns stage their value.
//   ACTION     Sends. What the manager refuses is recorded for the agent.
//   COMMIT     Releases what was staged. Cannot fail.
//   FREE       Likewise, and harmless where nothing is staged.
//   UNDO       Row status alone backs out. What others have sent stays.
//
// Who frees what is drawn in vsan_mib_staging.h.
#ifndef VSAN_MIB_SET_H
#define VSAN_MIB_SET_H

#include "vsan_mib_agent.h"

#include "vsan_mib.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_trace.h"

// A text for the trace, and one for the agent's standard error. Either may be missing;
// management scripts match them as they are.
struct refusal {
    trace_format trace = {};
    const char *standard_error = nullptr;
};

struct set_call;

// What a kind of write does in each phase, by action code; null for nothing.
struct write_kind {
    int (*phases[6])(const set_call &call);
};

// One write method. What differs between them stands here, and nowhere else.
struct set_rule {
    const char *function;
    const write_kind *kind;
    const vsan_object *object; // what it writes, and so the type of its value
    uint32_t lowest = 0;       // bounds of an integer
    uint32_t highest = 0;      // and the most bytes of an octet string
    refusal wrong_type = {};
    refusal wrong_length = {};
    refusal wrong_value = {};
    trace_format no_instance = {};
    trace_format restricted = {}; // class 100
    uint32_t restricted_status = STATUS_VSAN_RESTRICTED_USER;

    // Traces at the phases, where there are any.
    trace_format every_call = {};
    trace_format phases[6] = {}; // on entry, by action code
    trace_format value_accepted = {};
    trace_format vsan_accepted = {}; // with the VSAN number; for a restricted user only

    uint32_t *requested = nullptr;   // where the value goes before it is checked
    uint32_t *last_status = nullptr; // where the latest status of the manager goes
    bool zero_is_an_error = false;   // 0 is reported as a bad drop latency and answered genErr
};

// One call of a write method, with the agent's arguments.
struct set_call {
    const set_rule &rule;
    const u_char *value;
    u_char type;
    size_t length;   // of the value, in bytes
    u_char *current; // what the read handler returned for the varbind; null when there is no row
    const oid *name;
    size_t name_len; // in arcs
};

// Runs one phase. An action code that is none does nothing.
int run_phase(int action, const set_call &call);

// Writes a rule's trace line, where it has one.
void trace(const set_rule &rule, const trace_format &format, uint32_t trace_class);

// ---- Checks, in the order in which RESERVE1 makes them ---------------------------
//
// Each returns an SNMP error status, and says why not.

// Type and length.
int check_form(const set_call &call);

// The bounds of an integer whose form is right.
int check_range(const set_call &call);

// Both; all there is to check for a scalar.
int check_value(const set_call &call);

// Whether the user of the PDU may touch a VSAN; a refusal is reported.
int check_permission(const set_call &call, uint32_t vsan);

// An integer value as one word. REQUIRES: its form is right.
uint32_t integer_of(const set_call &call);

// ---- Kinds of write -----------------------------------------------------------

extern const write_kind write_column;
extern const write_kind write_row_status;
extern const write_kind write_membership;
extern const write_kind write_timer;
extern const write_kind write_force_flag;
extern const write_kind write_scalar;
extern const write_kind write_notification_control;

// Their phases, each beside its subject.
int check_row_status(const set_call &call);
int show_active(const set_call &call);
int apply_row_status(const set_call &call);
int undo_row_status(const set_call &call);
int check_membership(const set_call &call);
int move_interface(const set_call &call);
int check_timer(const set_call &call);
int send_timer(const set_call &call);
int check_force_flag(const set_call &call);
int store_force_flag(const set_call &call);
int send_scalar(const set_call &call);
int check_notification_control(const set_call &call);
int ask_for_notifications(const set_call &call);

#endif
