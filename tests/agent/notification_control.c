/* SPDX-License-Identifier: Apache-2.0 */
/* The module's notification control has a write method and no object yet. This gives it
 * one, so that tests can write it over SNMP: an agent loads it behind the module. */
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/util_funcs/header_generic.h>

extern WriteMethod write_vsanNotificationCntl;

void init_notification_control(void);
void deinit_notification_control(void);

/* Beside the VSAN number that every notification carries. */
static const oid OBJECT[] = {1, 3, 6, 1, 4, 1, VENDOR_PEN, 9, 282, 1, 1, 5};

static u_char *read_control(struct variable *row, oid *name, size_t *length, int exact, size_t *value_length,
                            WriteMethod **write_method) {
    static long value = 1;
    if (header_generic(row, name, length, exact, value_length, write_method) != MATCH_SUCCEEDED) {
        return NULL;
    }
    *write_method = write_vsanNotificationCntl;
    return (u_char *)&value;
}

static const struct variable1 ROWS[] = {{1, ASN_INTEGER, RWRITE, read_control, 0, {0}}};

void init_notification_control(void) {
    register_mib("notification_control", (const struct variable *)ROWS, sizeof(ROWS[0]), 1, OBJECT, OID_LENGTH(OBJECT));
}

void deinit_notification_control(void) {
    oid name[MAX_OID_LEN];
    memcpy(name, OBJECT, sizeof(OBJECT));
    unregister_mib(name, OID_LENGTH(OBJECT));
}
