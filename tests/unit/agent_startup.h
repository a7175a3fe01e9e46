// SPDX-License-Identifier: Apache-2.0
// The start of an agent inside a test program.
#ifndef AGENT_STARTUP_H
#define AGENT_STARTUP_H

#include <cstdlib>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

// Starts an agent that reads no files and keeps none, as far as init_agent(): what is to be
// in it comes next, and then init_snmp(). Its log lines go to `log`.
inline void start_agent_without_files(const char *name, NetsnmpLogHandler *log) {
    setenv("SNMPCONFPATH", "/nonexistent", 1);
    setenv("SNMP_PERSISTENT_DIR", "/nonexistent", 1);
    setenv("MIBS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG)->handler = log;
    init_agent(name);
}

#endif
