// SPDX-License-Identifier: Apache-2.0
// The functions that the module exports, each described where it is defined. They are listed
// in vsanmib.map too; everything else is hidden.
#ifndef VSAN_MIB_EXPORTS_H
#define VSAN_MIB_EXPORTS_H

#include "vsan_mib_agent.h"

#include "mts.h"

#include "vsan_mib.h"

#pragma GCC visibility push(default)
extern "C" {

void init_vsan_mib(void);
void deinit_vsan_mib(void);

uint32_t *get_using_cmi(uint32_t opcode, const void *payload, uint32_t length);
int to_snmp_error_code(uint32_t status, int mode);

void vsanEntry_hton(vsanEntry *entry);
void vsanEntry_ntoh(vsanEntry *entry);
void vsanIfEntry_hton(vsanIfEntry *entry);
void vsanIfEntry_ntoh(vsanIfEntry *entry);
void vsanNewFcTimer_ntoh(fc_timer_record *record);
int vsanEntry_comp(const void *a, const void *b);
int vsanIfEntry_comp(const void *a, const void *b);
void vsanEntry_defaults(vsanEntry *entry);
void vsanIfEntry_defaults(vsanIfEntry *entry);

// Lookups of the enumerations: the name of a value or null; the value of a name,
// compared without regard to case, or 0.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char *__vsan_attr_key_t_find(int32_t value);
int32_t __vsan_attr_key_t_str2enum(const char *name);
const char *__vsan_media_t_find(int32_t value);
int32_t __vsan_media_t_str2enum(const char *name);
const char *__vsan_loadbalancing_method_t_find(int32_t value);
int32_t __vsan_loadbalancing_method_t_str2enum(const char *name);
const char *__vsan_state_t_find(int32_t value);
int32_t __vsan_state_t_str2enum(const char *name);
const char *__vsan_oper_state_t_find(int32_t value);
int32_t __vsan_oper_state_t_str2enum(const char *name);
const char *__vsan_state_change_t_find(int32_t value);
int32_t __vsan_state_change_t_str2enum(const char *name);
const char *__port_membership_update_t_find(int32_t value);
int32_t __port_membership_update_t_str2enum(const char *name);
const char *__iscsi_vsan_list_operation_t_find(int32_t value);
int32_t __iscsi_vsan_list_operation_t_str2enum(const char *name);
const char *__vsan_tdx_state_t_find(int32_t value);
int32_t __vsan_tdx_state_t_str2enum(const char *name);
const char *__vsan_tdx_attr_t_find(int32_t value);
int32_t __vsan_tdx_attr_t_str2enum(const char *name);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

u_char *get_vsan_mib(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method);
u_char *get_vsanEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method);
u_char *get_vsanIfEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                        WriteMethod **write_method);
u_char *get_vsanMembershipSummaryEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                                       WriteMethod **write_method);
u_char *get_vsanFcTimerEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                             WriteMethod **write_method);

uint32_t header_vsanEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                          vsanEntry *entry);
uint32_t get_vsanEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length, int exact,
                                vsanEntry *entry);

void set_table_set_methods(int magic, WriteMethod **write_method);
void set_if_table_set_methods(int magic, WriteMethod **write_method);
void set_fctimer_table_set_methods(int magic, WriteMethod **write_method);

uint32_t header_vsanIfEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                            vsanIfEntry *record);
uint32_t header_vsanMembershipSummaryEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                                           vsanMembershipSummary_row *row);
uint32_t header_vsanFcTimerEntry(const variable *vp, oid *name, size_t *length, int exact, fc_timer_record *record,
                                 int for_set);
uint32_t get_vsanFcTimerEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length,
                                       int exact, fc_timer_record *record);
int process_for_vsan_restriction(uint32_t if_index, int operation, uint32_t vsan, const oid *name, size_t length,
                                 int pdu_type);

int handle_onepdu_undo_vsanEntryList(int magic, const oid *name, size_t name_len, const u_char *value, size_t length);
int handle_set_vsanEntryList(const oid *name, size_t name_len);
int handle_free_vsanEntryList(const oid *name, size_t name_len);
int handle_undo_vsanEntryList(const oid *name, size_t name_len);

WriteMethod set_vsanRowStatus;
WriteMethod set_vsanName;
WriteMethod set_vsanMediaType;
WriteMethod set_vsanAdminState;
WriteMethod set_vsanMtu;
WriteMethod set_vsanLoadBalancingType;
WriteMethod set_vsanInterOperType;
WriteMethod set_vsanInterOperMode;
WriteMethod set_vsanInorderDelivery;
WriteMethod set_vsanNetworkDropLatency;
WriteMethod set_vsanIfVsan;
WriteMethod set_vsanIfDenyList;
int check_valid_ifindex(void);

WriteMethod set_vsanFcTimerForceFlag;
WriteMethod set_vsanFcTimerRatov;
WriteMethod set_vsanFcTimerEdtov;
WriteMethod set_vsanFcTimerDstov;
uint8_t set_mib_vsanFcTimerForceFlag(uint8_t flags, uint32_t key, int enable);

int set_Scalar(uint32_t opcode, uint32_t length, const void *payload);
WriteMethod set_fcTimerRatov;
WriteMethod set_fcTimerEdtov;
WriteMethod set_fcTimerDstov;
WriteMethod set_fcNetworkLatency;
WriteMethod set_fcSwitchLatency;
WriteMethod set_fcInorderDelivery;

netsnmp_variable_list *handle_notifications(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send);
netsnmp_variable_list *handle_port_memb_change_notifications(const mts_message *message, oid *trap_oid,
                                                             size_t *trap_length, int *send);
WriteMethod write_vsanNotificationCntl;
int vsan_trap_vsan_set(uint32_t value);

} // extern "C"
#pragma GCC visibility pop

#endif
