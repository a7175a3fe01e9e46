// SPDX-License-Identifier: Apache-2.0
// Names of rows: from a name to an index and back.

#include "vsan_mib_names.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_trace.h"

#include <cstring>

bool is_of_column(column_name column, const oid *name, size_t length) {
    return length >= column.length && snmp_oid_compare(name, column.length, column.arcs, column.length) == 0;
}

bool is_below(column_name column, const oid *name, size_t length) {
    return length > column.length && is_of_column(column, name, length);
}

uint32_t index_arc(column_name column, const oid *name, size_t at) {
    return static_cast<uint32_t>(name[column.length + at]);
}

uint32_t last_arc(const oid *name, size_t length) {
    return static_cast<uint32_t>(name[length - 1]);
}

bool exact_index(column_name column, const oid *name, size_t length, uint32_t &index) {
    if (length != column.length + 1) {
        return false;
    }
    index = index_arc(column, name);
    return true;
}

bool next_index(column_name column, const oid *name, size_t length, getnext_end end, uint32_t &index) {
    index = is_below(column, name, length) ? index_arc(column, name) : 0;
    return index < end.from || index > end.to;
}

bool asked_index(column_name column, const oid *name, size_t length, int exact, getnext_end end, uint32_t &index) {
    if (exact == 0) {
        return next_index(column, name, length, end, index);
    }
    if (!exact_index(column, name, length, index)) {
        index = 0;
    }
    return true;
}

uint32_t next_vsan(column_name column, const oid *name, size_t length) {
    uint32_t index = 0;
    return next_index(column, name, length, {uint32_t{INT32_MAX} + 1, UINT32_MAX}, index) ? index : 0;
}

void name_row(column_name column, oid *name, size_t *length, uint32_t index) {
    memcpy(name, column.arcs, column.length * sizeof *name);
    name[column.length] = index;
    *length = column.length + 1;
}

void name_pair(column_name column, oid *name, size_t *length, uint32_t index, uint32_t second) {
    name_row(column, name, length, index);
    name[column.length + 1] = second;
    *length = column.length + 2;
}

name_copy::name_copy(const oid *name, size_t name_len) : length(name_len) {
    memcpy(arcs, name, name_len * sizeof *name);
}

bool resolve_instance(const oid *name, size_t name_len, vsanEntry &entry) {
    return get_vsanEntry_instance(name, VSAN_COLUMN_LENGTH, name, &name_len, 1, &entry) == 0;
}

extern "C" {

// Takes the VSAN number from a request OID.
//
// vp_name, vp_namelen  the column
// name, length         the request OID; not changed
// exact                nonzero for GET
// entry                cleared, then given the number; 0 stands for "before the first"
//
// Returns 0, or ENTRY_NO_INSTANCE for a GETNEXT from beyond the table. A GET takes a
// number only from an OID of exactly one arc more than the column, and whatever it is.
uint32_t get_vsanEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length, int exact,
                                vsanEntry *entry) {
    uint32_t vsan;
    const bool is_within = asked_index({vp_name, vp_namelen}, name, *length, exact, VSAN_TABLE_END, vsan);
    *entry = {};
    entry->vsanIndex = static_cast<int32_t>(vsan);
    if (!is_within) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d)*** vsanIndex:%d *** \n", __func__, __LINE__, entry->vsanIndex);
        return ENTRY_NO_INSTANCE;
    }
    return 0;
}

} // extern "C"
