// SPDX-License-Identifier: Apache-2.0
#include "if_tables.h"

#include <cstring>

#include <iterator>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "channel.h"
#include "contract/big_endian.h"
#include "contract/records.h"
#include "contract/services.h"
#include "if_columns.h"
#include "port.h"
#include "registrations.h"
#include "setting.h"
#include "value.h"

namespace switch_agent {
namespace {

const oid IF_NUMBER[] = {1, 3, 6, 1, 2, 1, 2, 1};
const oid IF_TABLE[] = {1, 3, 6, 1, 2, 1, 2, 2};
const oid IF_X_TABLE[] = {1, 3, 6, 1, 2, 1, 31, 1, 1};
const oid IF_TABLE_LAST_CHANGE[] = {1, 3, 6, 1, 2, 1, 31, 1, 5};

// A column that can be written: which setting of a port it is, and where its value lies.
struct WritableColumn {
    unsigned column;
    port_setting_key key;
    uint32_t Port::*word; // of two values, 1 and 2; null for the alias
};

// A table, as the handler that serves it gets it.
struct Table {
    bool (*value)(const Port &port, unsigned column, Value &value);
    const WritableColumn *writable;
    size_t writable_count;
};

constexpr WritableColumn WRITABLE[] = {{IF_ADMIN_STATUS, PORT_SETTING_ADMIN, &Port::admin}};
constexpr WritableColumn WRITABLE_X[] = {{IF_LINK_UP_DOWN_TRAP_ENABLE, PORT_SETTING_TRAPS, &Port::traps},
                                         {IF_ALIAS, PORT_SETTING_ALIAS, nullptr}};
Table if_table = {if_table_value, WRITABLE, std::size(WRITABLE)};
Table if_x_table = {if_x_table_value, WRITABLE_X, std::size(WRITABLE_X)};

netsnmp_table_registration_info if_table_columns;
netsnmp_table_registration_info if_x_table_columns;

const WritableColumn *find_writable(const Table &table, unsigned column) {
    for (size_t i = 0; i < table.writable_count; ++i) {
        if (table.writable[i].column == column) {
            return &table.writable[i];
        }
    }
    return nullptr;
}

// The ifIndex that a varbind names in full. False when its name has more arcs or none.
bool read_index(const netsnmp_table_request_info &info, uint32_t &if_index) {
    if (info.index_oid_len != 1) {
        return false;
    }
    if_index = static_cast<uint32_t>(info.index_oid[0]);
    return true;
}

// Reads

// What a GET is answered with: noError or one of the exceptions.
int get(const Table &table, const netsnmp_table_request_info &info, netsnmp_variable_list &varbind) {
    uint32_t if_index = 0;
    const Port *port = nullptr;
    Value value;
    if (!read_index(info, if_index) || port_at(if_index, port) != Lookup::found) {
        return SNMP_NOSUCHINSTANCE;
    }
    if (!table.value(*port, info.colnum, value)) {
        return SNMP_NOSUCHOBJECT;
    }
    return value.give_to(varbind) ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

// The same for GETNEXT; endOfMibView where the column is at its end, so that the agent goes on to
// the next one. A switch that does not answer has no rows.
int get_next(const Table &table, const netsnmp_handler_registration &registration,
             const netsnmp_table_request_info &info, netsnmp_variable_list &varbind) {
    const uint32_t after = info.index_oid_len > 0 ? static_cast<uint32_t>(info.index_oid[0]) : 0;
    const Port *port = nullptr;
    Value value;
    if (port_after(after, port) != Lookup::found || !table.value(*port, info.colnum, value)) {
        return SNMP_ENDOFMIBVIEW;
    }
    oid name[MAX_OID_LEN];
    size_t length = registration.rootoid_len;
    memcpy(name, registration.rootoid, length * sizeof(oid));
    name[length++] = 1;
    name[length++] = info.colnum;
    name[length++] = port->if_index;
    return snmp_set_var_objid(&varbind, name, length) == 0 && value.give_to(varbind) ? SNMP_ERR_NOERROR
                                                                                     : SNMP_ERR_GENERR;
}

// Writes

int check_value(const WritableColumn &column, const netsnmp_variable_list &varbind) {
    if (!column.word) {
        return check_text(varbind, PORT_ALIAS_MAX);
    }
    if (varbind.type != ASN_INTEGER) {
        return SNMP_ERR_WRONGTYPE;
    }
    // Up and down, enabled and disabled. No port can be tested.
    return *varbind.val.integer == 1 || *varbind.val.integer == 2 ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
}

int reserve1(const Table &table, const netsnmp_table_request_info &info, const netsnmp_variable_list &varbind) {
    const WritableColumn *column = find_writable(table, info.colnum);
    if (!column) {
        return SNMP_ERR_NOTWRITABLE;
    }
    uint32_t if_index = 0;
    const bool is_named = read_index(info, if_index);
    // Also where there is no such port: a role does not tell what there is beside what it allows.
    if (is_named && is_barred(if_index, Purpose::change)) {
        return SNMP_ERR_NOACCESS;
    }
    const int wrong = check_value(*column, varbind);
    if (wrong != SNMP_ERR_NOERROR) {
        return wrong;
    }
    return is_named ? SNMP_ERR_NOERROR : SNMP_ERR_NOCREATION;
}

int reserve2(const Table &table, const netsnmp_table_request_info &info, netsnmp_request_info &request) {
    const WritableColumn *column = find_writable(table, info.colnum);
    uint32_t if_index = 0;
    if (!column || !read_index(info, if_index)) {
        return SNMP_ERR_GENERR;
    }
    const Port *port = nullptr;
    switch (port_at(if_index, port)) {
    case Lookup::absent:
        return SNMP_ERR_NOCREATION;
    case Lookup::failed:
        return SNMP_ERR_GENERR;
    case Lookup::found:
        break;
    }
    const netsnmp_variable_list &varbind = *request.requestvb;
    if (!column->word) {
        return stage_setting(request, port_alias_setting(if_index, varbind.val.string, varbind.val_len),
                             port_alias_setting(if_index, port->alias, port->alias_length));
    }
    const auto word = static_cast<uint32_t>(*varbind.val.integer);
    return stage_setting(request, port_word_setting(if_index, column->key, word),
                         port_word_setting(if_index, column->key, port->*column->word));
}

int answer(const Table &table, const netsnmp_handler_registration &registration, int mode,
           netsnmp_request_info &request) {
    const netsnmp_table_request_info *info = netsnmp_extract_table_info(&request);
    if (!info) {
        return SNMP_ERR_GENERR;
    }
    switch (mode) {
    case MODE_GET:
        return get(table, *info, *request.requestvb);
    case MODE_GETNEXT:
        return get_next(table, registration, *info, *request.requestvb);
    case MODE_SET_RESERVE1:
        return reserve1(table, *info, *request.requestvb);
    case MODE_SET_RESERVE2:
        return reserve2(table, *info, request);
    case MODE_SET_ACTION:
        return send_setting(request);
    case MODE_SET_UNDO:
        return undo_setting(request);
    default:
        return SNMP_ERR_NOERROR;
    }
}

int serve_table(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                netsnmp_agent_request_info *request_info, netsnmp_request_info *requests) {
    const Table &table = *static_cast<const Table *>(handler->myvoid);
    for (netsnmp_request_info *request = requests; request; request = request->next) {
        // The agent's own helper has answered it: its name is none of this table.
        if (request->processed) {
            continue;
        }
        const int result = answer(table, *registration, request_info->mode, *request);
        if (result != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(request_info, request, result);
        }
    }
    return SNMP_ERR_NOERROR;
}

int serve_if_number(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *request_info,
                    netsnmp_request_info *request) {
    uint8_t word[WORD_RECORD_SIZE];
    Value value;
    // The same request as for vsanIfNumber: a length without a payload.
    if (exchange({MTS_SERVICE_VSAN, MTS_OP_INTERFACE_COUNT, MTS_KIND_GET, nullptr, sizeof word}, word, sizeof word) !=
        0) {
        netsnmp_set_request_error(request_info, request, SNMP_NOSUCHINSTANCE);
        return SNMP_ERR_NOERROR;
    }
    value.set_integer(static_cast<int32_t>(read_be32(word)));
    return value.give_to(*request->requestvb) ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

// A switch keeps the ports that it was made with.
int serve_if_table_last_change(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *,
                               netsnmp_request_info *request) {
    Value value;
    value.set_count(ASN_TIMETICKS, 0);
    return value.give_to(*request->requestvb) ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

void register_table(const char *name, const oid *root, size_t length, Table &table,
                    netsnmp_table_registration_info &columns, unsigned last_column) {
    columns = {};
    netsnmp_table_helper_add_indexes(&columns, ASN_INTEGER, 0);
    columns.min_column = 1;
    columns.max_column = last_column;
    add_table(name, root, length, serve_table, &table, columns);
}

} // namespace

void register_interfaces() {
    add_scalar("ifNumber", IF_NUMBER, OID_LENGTH(IF_NUMBER), serve_if_number, nullptr, Access::read_only);
    register_table("ifTable", IF_TABLE, OID_LENGTH(IF_TABLE), if_table, if_table_columns, IF_OUT_ERRORS);
    register_table("ifXTable", IF_X_TABLE, OID_LENGTH(IF_X_TABLE), if_x_table, if_x_table_columns,
                   IF_COUNTER_DISCONTINUITY_TIME);
    add_scalar("ifTableLastChange", IF_TABLE_LAST_CHANGE, OID_LENGTH(IF_TABLE_LAST_CHANGE), serve_if_table_last_change,
               nullptr, Access::read_only);
}

void release_interfaces() {
    snmp_free_varbind(if_table_columns.indexes);
    snmp_free_varbind(if_x_table_columns.indexes);
    if_table_columns = {};
    if_x_table_columns = {};
}

} // namespace switch_agent
