// SPDX-License-Identifier: Apache-2.0
#include "switch_in_process.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "indxobj.h"
#include "mts.h"
#include "mts/mts_counters.h"
#include "mts/mts_events.h"
#include "mts/mts_settings.h"
#include "sdwrap.h"
#include "sysmgr/sysmgr_state.h"

switch_in_process the_switch;

namespace {

constexpr uint32_t no_status = UINT32_MAX;
constexpr uint32_t any_refusal = 0x40190014u;

uint32_t timed_out() {
    errno = ETIMEDOUT;
    return no_status;
}

bool asks_for_change(uint32_t kind) {
    return kind == MTS_KIND_SET || kind == MTS_KIND_DELETE;
}

// A reply's data in memory of just its size.
void *copy_of(const vswitch::Buffer &data) {
    void *copy = malloc(data.empty() ? 1 : data.size());
    if (copy != nullptr && !data.empty()) {
        memcpy(copy, data.data(), data.size());
    }
    return copy;
}

} // namespace

bool agent_is_blocking() {
    return sysmgr_blocking_depth() != 0;
}

extern "C" {

// ---- Message service

static char queue_storage;
mts_queue *mts_response_q = reinterpret_cast<mts_queue *>(&queue_storage);

uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length,
                      const char *user_name, uint32_t, uint32_t service, mts_queue *, uint32_t) {
    const uint32_t sent = *length;
    if (reply != nullptr) {
        *reply = nullptr;
    }
    *length = 0;

    ++the_switch.requests;
    the_switch.changes += asks_for_change(kind);
    const bool fails = the_switch.requests == the_switch.failing;
    if (fails && the_switch.how == failure::refused) {
        return any_refusal;
    }
    if (fails && the_switch.how == failure::unanswered) {
        return timed_out();
    }

    vswitch::Request request;
    request.service = service;
    request.opcode = opcode;
    request.kind = kind;
    request.length = sent;
    if (payload != nullptr) {
        request.payload = vswitch::Bytes(static_cast<const uint8_t *>(payload), sent);
    }
    if (user_name != nullptr) {
        request.user = user_name;
    }
    vswitch::Reply answer;
    vswitch::answer_request(*the_switch.target, request, answer);
    if (fails && the_switch.how == failure::lost) {
        return timed_out();
    }
    if (fails) {
        answer.data.resize(answer.data.size() / 2);
    }
    if (reply != nullptr && answer.has_data) {
        *reply = copy_of(answer.data);
        *length = static_cast<uint32_t>(answer.data.size());
    }
    return answer.status;
}

// No event is ever published here.
void mts_count_requests(const char *) {} // nobody else looks

const void *mts_payload_get(const mts_message *) {
    return nullptr;
}
uint32_t mts_payload_size(const mts_message *) {
    return 0;
}
// Nothing may be kept: any request may fail, and is to be made for that.
uint64_t mts_settings_generation(void) {
    return 0;
}

int mts_memory_is_other_version(void) {
    return 0;
}

int mts_events_open(const uint32_t *, size_t) {
    errno = ECONNREFUSED;
    return -1;
}
int mts_events_next(const mts_message **event) {
    *event = nullptr;
    errno = ENOTCONN;
    return -1;
}
void mts_events_close(void) {}
uint32_t mts_message_class(const mts_message *) {
    return 0;
}

// ---- Trace: every line is wanted, formatted and dropped

const char *sdwrap_dbg_modname = "fuzzing";

int sdwrap_hist_event_subtype_check(uint32_t, uint32_t) {
    return 0;
}
void sdwrap_hist_event(uint32_t, uint32_t length, const void *record) {
    // Its length counts the class before the text and the NUL behind it.
    if (strlen(static_cast<const char *>(record) + sizeof(uint32_t)) + 5 != length) {
        abort();
    }
}
int sdwrap_chk_int(uint32_t, uint32_t, uint32_t, uint32_t) {
    return 1;
}
void buginf(const char *, const char *format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    if (vsnprintf(text, sizeof text, format, arguments) < 0) {
        abort();
    }
    va_end(arguments);
}

// ---- Lists: the platform's own, counted

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __real_indxobj_add(indxobj_list *list, const void *key, void *data);
int __wrap_indxobj_add(indxobj_list *list, const void *key, void *data) {
    const int result = __real_indxobj_add(list, key, data);
    the_switch.listed += result != 0;
    return result;
}

void *__real_indxobj_remove(indxobj_list *list, const void *key);
void *__wrap_indxobj_remove(indxobj_list *list, const void *key) {
    void *data = __real_indxobj_remove(list, key);
    the_switch.listed -= data != nullptr;
    return data;
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

} // extern "C"
