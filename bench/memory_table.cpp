// SPDX-License-Identifier: Apache-2.0
// A table of 4095 names that the agent keeps in its own memory, loaded with dlmod: what the
// VSAN table is measured against. It has the shape of vsanName: as many arcs, the same index,
// values of the same length.
//
// It uses the agent's own helper for tables in memory, which finds a row by binary search. A
// table of `table` and `add_row` lines in snmpd.conf would be no fair opponent: the agent
// searches that one from its first row for every single value.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace {

constexpr int ROWS = 4095;
constexpr unsigned NAME_COLUMN = 2;
constexpr size_t NAME_SIZE = 16;

struct row_data {
    char name[NAME_SIZE];
};

row_data rows[ROWS];

int answer(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *request_info,
           netsnmp_request_info *requests) {
    for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
        const auto *row = static_cast<const row_data *>(netsnmp_tdata_extract_entry(request));
        if (row == nullptr) {
            netsnmp_set_request_error(request_info, request, SNMP_NOSUCHINSTANCE);
        } else {
            snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, row->name, strlen(row->name));
        }
    }
    return SNMP_ERR_NOERROR;
}

} // namespace

extern "C" void init_memory_table(void) {
    const oid root[] = {1, 3, 6, 1, 4, 1, VENDOR_PEN, 9, 283, 1, 1, 3};
    netsnmp_tdata *table = netsnmp_tdata_create_table("memory_table", 0);
    netsnmp_table_registration_info *columns = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_handler_registration *registration =
        netsnmp_create_handler_registration("memory_table", answer, root, OID_LENGTH(root), HANDLER_CAN_RONLY);
    if (table == nullptr || columns == nullptr || registration == nullptr) {
        snmp_log(LOG_ERR, "memory_table: no memory\n");
        return;
    }
    netsnmp_table_helper_add_indexes(columns, ASN_INTEGER, 0);
    columns->min_column = NAME_COLUMN;
    columns->max_column = NAME_COLUMN;
    for (int i = 0; i < ROWS; ++i) {
        snprintf(rows[i].name, NAME_SIZE, "bench-%04d", i + 1);
        const long index = i + 1;
        netsnmp_tdata_row *row = netsnmp_tdata_create_row();
        if (row == nullptr) {
            continue;
        }
        row->data = &rows[i];
        netsnmp_tdata_row_add_index(row, ASN_INTEGER, &index, sizeof index);
        netsnmp_tdata_add_row(table, row);
    }
    if (netsnmp_tdata_register(registration, table, columns) != SNMPERR_SUCCESS) {
        snmp_log(LOG_ERR, "memory_table: the agent refuses the table\n");
    }
}
