// SPDX-License-Identifier: Apache-2.0
// All that the module knows of OIDs: the name of a row, the index in it, and where the
// GETNEXT of a table ends. Everything else deals in indexes.
//
// A row's name is its column's name and the index: one arc, or two in the membership
// summary. Arcs are 32-bit numbers, whatever the size of the agent's `oid`.
#ifndef VSAN_MIB_NAMES_H
#define VSAN_MIB_NAMES_H

#include "vsan_mib_agent.h"

#include "vsan_mib.h"

// The name of a column, as the agent passes it to a handler.
struct column_name {
    const oid *arcs;
    size_t length;

    column_name(const oid *column, size_t column_length) : arcs(column), length(column_length) {}
    explicit column_name(const variable *vp) : arcs(vp->name), length(vp->namelen) {}
};

// Whether a name begins with the column's; it may be the column's own.
bool is_of_column(column_name column, const oid *name, size_t length);

// Whether a name is the column's with an arc or more behind it.
bool is_below(column_name column, const oid *name, size_t length);

// The arc `at` places behind the column. REQUIRES: the name has it.
uint32_t index_arc(column_name column, const oid *name, size_t at = 0);

// The last arc of a varbind's name: its row's number, unless the name has an unusual length.
uint32_t last_arc(const oid *name, size_t length);

// The index that a GET names, into `index`. Returns whether there is one: exactly one arc
// more than the column.
bool exact_index(column_name column, const oid *name, size_t length, uint32_t &index);

// Where nothing is looked for any more: from an index between these, both included, no
// GETNEXT is made.
struct getnext_end {
    uint32_t from;
    uint32_t to;
};

// VSANs end at 4095, but 4096 is still asked for: the manager has the last word.
constexpr getnext_end VSAN_TABLE_END = {VSAN_MAX + 2, UINT32_MAX};
// A larger arc is negative to the manager, so that the first VSAN comes after it.
constexpr getnext_end TIMER_TABLE_END = {VSAN_MAX + 1, INT32_MAX};
// Nothing can follow the largest ifIndex.
constexpr getnext_end INTERFACE_TABLE_END = {UINT32_MAX, UINT32_MAX};

// The index that a GETNEXT starts from, into `index`: 0, before the first row, for a name
// that is not below the column. Returns false where the table ends.
bool next_index(column_name column, const oid *name, size_t length, getnext_end end, uint32_t &index);

// The index that a request starts from, into `index`: for a GET (`exact` nonzero) the one that
// it names or 0, for a GETNEXT as above. Returns false where the table ends.
bool asked_index(column_name column, const oid *name, size_t length, int exact, getnext_end end, uint32_t &index);

// The VSAN that a GETNEXT starts from as the manager takes it, a signed number: a negative
// one comes before the first VSAN, and is 0.
uint32_t next_vsan(column_name column, const oid *name, size_t length);

// Writes the name of a row. REQUIRES: room for MAX_OID_LEN arcs.
void name_row(column_name column, oid *name, size_t *length, uint32_t index);
void name_pair(column_name column, oid *name, size_t *length, uint32_t index, uint32_t second);

// A varbind's name, to be changed by a lookup while the varbind's own stays.
struct name_copy {
    oid arcs[MAX_OID_LEN];
    size_t length;

    name_copy(const oid *name, size_t name_len);
};

// Takes the VSAN number from the instance OID of a varbind (`name_len` arcs, the first
// VSAN_COLUMN_LENGTH the column) into a cleared record. Returns whether it could. Whoever asks
// minds the answer, as the exported get_vsanEntry_instance gives it.
bool resolve_instance(const oid *name, size_t name_len, vsanEntry &entry);
constexpr char EXACT_NAMES_RESOLVE[] = "only a GETNEXT can fail to take a number from its name";

#endif
