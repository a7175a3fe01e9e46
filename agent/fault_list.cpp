// SPDX-License-Identifier: Apache-2.0
#include "fault_list.h"

#include <cstdlib>
#include <cstring>

#include <sys/random.h>
#include <unistd.h>

#include <net-snmp/library/snmp_alarm.h>

#include "channel.h"
#include "contract/big_endian.h"
#include "contract/services.h"
#include "interception.h"
#include "mts.h"
#include "netsnmpagent_oryx.h"

namespace switch_agent {
namespace {

// Counts that come within this time are one request; and until the next attempt when one failed.
constexpr unsigned REPORT_AFTER_MS = 100;
constexpr unsigned RETRY_AFTER_MS = 1000;

Fault faults[CLIENT_FAULTS_MAX];
uint32_t fault_count = 0;
unsigned edition = 0;

uint8_t this_agent[CLIENT_FAULT_AGENT_SIZE];
uint8_t the_switch[CLIENT_FAULT_AGENT_SIZE];
uint32_t switch_edition = 0;

// The agent's timers, or 0.
unsigned fetch_timer = 0;
unsigned report_timer = 0;

void start_timer(unsigned &timer, unsigned milliseconds, SNMPAlarmCallback *callback) {
    if (timer == 0) {
        const timeval duration = {static_cast<time_t>(milliseconds / 1000),
                                  static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
        timer = snmp_alarm_register_hr(duration, 0, callback, nullptr);
    }
}

void stop_timer(unsigned &timer) {
    if (timer != 0) {
        snmp_alarm_unregister(timer);
        timer = 0;
    }
}

const Fault *find(uint32_t number, const Fault *list, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (list[i].number == number) {
            return &list[i];
        }
    }
    return nullptr;
}

// Takes over the switch's list. False when it is none; what there was stays then.
bool take_list(const uint8_t *list, uint32_t size) {
    static Fault next[CLIENT_FAULTS_MAX];
    if (!list || size < CLIENT_FAULT_LIST_FIXED) {
        return false;
    }
    const uint32_t count = read_be32(list + CLIENT_FAULT_LIST_COUNT);
    if (count > CLIENT_FAULTS_MAX || size != CLIENT_FAULT_LIST_FIXED + count * CLIENT_FAULT_RECORD_SIZE) {
        return false;
    }
    // The numbers of another run of the switch stand for other faults.
    const bool is_same_switch = memcmp(the_switch, list + CLIENT_FAULT_LIST_SWITCH, sizeof the_switch) == 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (!fault_decode(list + CLIENT_FAULT_LIST_FIXED + size_t{CLIENT_FAULT_RECORD_SIZE} * i, next[i])) {
            return false;
        }
        const Fault *former = is_same_switch ? find(next[i].number, faults, fault_count) : nullptr;
        if (former) {
            next[i] = *former;
        }
    }
    memcpy(the_switch, list + CLIENT_FAULT_LIST_SWITCH, sizeof the_switch);
    switch_edition = read_be32(list + CLIENT_FAULT_LIST_EDITION);
    memcpy(faults, next, count * sizeof *faults);
    fault_count = count;
    ++edition;
    return true;
}

void fetch();

void on_fetch_timer(unsigned, void *) {
    fetch_timer = 0;
    fetch();
}

// Says which edition this agent goes by, and the counts of all faults. False when the switch could not be told.
bool report() {
    uint8_t payload[CLIENT_FAULT_COUNTS_FIXED + CLIENT_FAULTS_MAX * CLIENT_FAULT_COUNT_SIZE];
    uint32_t length = CLIENT_FAULT_COUNTS_FIXED;
    memcpy(payload + CLIENT_FAULT_COUNTS_AGENT, this_agent, sizeof this_agent);
    memcpy(payload + CLIENT_FAULT_COUNTS_SWITCH, the_switch, sizeof the_switch);
    write_be32(payload + CLIENT_FAULT_COUNTS_EDITION, switch_edition);
    for (uint32_t i = 0; i < fault_count; ++i) {
        if (faults[i].applied > 0) {
            write_be32(payload + length, faults[i].number);
            write_be32(payload + length + 4, faults[i].applied);
            length += CLIENT_FAULT_COUNT_SIZE;
        }
    }
    // Only a switch that could not be reached is asked again: one that refuses the counts does so
    // because they are not its own any more.
    return exchange({MTS_SERVICE_SWITCH, MTS_OP_CLIENT_FAULTS, MTS_KIND_SET, payload, length}, nullptr, 0) !=
           UINT32_MAX;
}

void on_report_timer(unsigned, void *) {
    report_timer = 0;
    if (!report()) {
        start_timer(report_timer, RETRY_AFTER_MS, on_report_timer);
    }
    // The last may have been used up.
    intercept_as_needed();
}

void fetch() {
    void *reply = nullptr;
    uint32_t length = sizeof this_agent;
    const uint32_t status = cmi_req_resp(MTS_OP_CLIENT_FAULTS, MTS_KIND_GET, this_agent, &reply, &length, nullptr, 0,
                                         MTS_SERVICE_SWITCH, mts_response_q, WAIT_CLASS);
    if (status == 0 && take_list(static_cast<const uint8_t *>(reply), length)) {
        intercept_as_needed();
        stop_timer(report_timer);
        on_report_timer(0, nullptr);
    } else {
        start_timer(fetch_timer, RETRY_AFTER_MS, on_fetch_timer);
    }
    free(reply);
}

// An event of the switch that is no notification.
netsnmp_variable_list *on_changed(const mts_message *, oid *, size_t *, int *send) {
    *send = 0;
    stop_timer(fetch_timer);
    fetch();
    return nullptr;
}

} // namespace

void fault_list_start() {
    if (getrandom(this_agent, sizeof this_agent, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof this_agent)) {
        // Early in a machine's life: another number at each start will do.
        const uint64_t moment = static_cast<uint64_t>(time(nullptr)) << 32 ^ static_cast<uint64_t>(getpid());
        memcpy(this_agent, &moment, sizeof this_agent);
    }
    if (register_for_notification(EVENT_CLIENT_FAULTS, on_changed) != 0) {
        snmp_log(LOG_ERR, "switchmib: no room for another class of events; no client will meet a fault\n");
    }
}

void fault_list_stop() {
    unregister_for_notification(EVENT_CLIENT_FAULTS);
    stop_timer(fetch_timer);
    stop_timer(report_timer);
    memset(the_switch, 0, sizeof the_switch);
    fault_count = 0;
    ++edition;
    stop_intercepting();
}

Fault *next_fault(const Message &message, const Fault *last) {
    for (Fault *fault = last ? faults + (last - faults) + 1 : faults; fault < faults + fault_count; ++fault) {
        if (!fault->is_used_up() && fault_agrees(*fault, message)) {
            return fault;
        }
    }
    return nullptr;
}

bool applies(Fault &fault) {
    if (!fault_applies(fault)) {
        return false;
    }
    start_timer(report_timer, REPORT_AFTER_MS, on_report_timer);
    return true;
}

bool has_faults(uint32_t pdus) {
    for (uint32_t i = 0; i < fault_count; ++i) {
        if (!faults[i].is_used_up() && (faults[i].pdus & pdus) != 0) {
            return true;
        }
    }
    return false;
}

unsigned fault_list_edition() {
    return edition;
}

} // namespace switch_agent
