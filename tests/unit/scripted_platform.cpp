// SPDX-License-Identifier: Apache-2.0
#include "scripted_platform.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

scripted_platform platform;

int64_t sent_request::vsan() const {
    return opcode == 149 && payload.size() >= row_offset + 4 ? int64_t{get_word(payload, row_offset)} : -1;
}

scripted_reply reply_script::next() {
    if (answers.empty()) {
        return {some_failure, 0, std::nullopt};
    }
    scripted_reply answer = answers.front();
    if (answers.size() > 1) {
        answers.pop_front();
    }
    return answer;
}

void scripted_platform::reset() {
    const uint32_t last_pdu = pdu;
    for (void *reply : std::set<void *>(replies_held)) {
        free(reply);
    }
    *this = scripted_platform();
    pdu = last_pdu + 1;
}

void scripted_platform::add_vsan(uint32_t index) {
    vsan_row row;
    row.index = index;
    row.name = "vsan" + std::to_string(index);
    vsans[index] = row;
}

void scripted_platform::add_vsans(std::initializer_list<uint32_t> list) {
    for (const uint32_t index : list) {
        add_vsan(index);
    }
}

std::vector<std::string> scripted_platform::journal_of(const std::string &prefix) const {
    std::vector<std::string> result;
    for (const std::string &entry : journal) {
        if (entry.compare(0, prefix.size(), prefix) == 0) {
            result.push_back(entry);
        }
    }
    return result;
}

std::vector<int64_t> scripted_platform::vsans_asked() const {
    std::vector<int64_t> result;
    for (const sent_request &request : requests) {
        result.push_back(request.vsan());
    }
    return result;
}

scripted_reply scripted_platform::answer(const sent_request &request) {
    if (manager) {
        return manager(request);
    }
    const auto script = scripts.find({request.opcode, request.kind});
    if (script != scripts.end()) {
        return script->second.next();
    }
    if (request.opcode == 149 && (request.kind == 1 || request.kind == 2)) {
        const auto asked = static_cast<uint32_t>(request.vsan());
        const auto row = request.kind == 1 ? vsans.find(asked) : vsans.upper_bound(asked);
        if (row == vsans.end()) {
            return {0x40190001u, 0, std::nullopt};
        }
        return {0, 0, row_reply(row->second)};
    }
    ++unscripted_requests;
    return {some_failure, 0, std::nullopt};
}

membership_reply scripted_platform::answer(const membership_request &request) {
    if (port_manager) {
        return port_manager(request);
    }
    if (!memberships) {
        ++unscripted_requests;
        return {some_failure};
    }
    const std::pair<uint32_t, uint32_t> asked = {request.vsan, request.if_index};
    const auto pair = request.kind == 1 ? memberships->find(asked) : memberships->upper_bound(asked);
    if (pair == memberships->end()) {
        return {some_failure};
    }
    return {0, pair->first.first, pair->first.second, pair->second};
}

void *scripted_platform::make_reply(const bytes &data) {
    // Exactly as large as the data, so that reading past its end is seen.
    // Not by malloc, which a test may let fail in the module.
    void *reply = nullptr;
    if (posix_memalign(&reply, sizeof(void *), data.size()) != 0) {
        abort();
    }
    if (!data.empty()) {
        memcpy(reply, data.data(), data.size());
    }
    replies_held.insert(reply);
    ++replies_made;
    return reply;
}

std::string failure_text(uint32_t status) {
    char text[40];
    snprintf(text, sizeof text, "failure 0x%08x", status);
    return text;
}

namespace {

void note(const char *format, ...) __attribute__((format(printf, 1, 2)));

void note(const char *format, ...) {
    char text[120];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    platform.journal.emplace_back(text);
}

// What an output holds that nothing was promised about.
constexpr uint32_t scribble = 0xDEADBEEFu;

// The class that the debug filter was last asked about: buginf itself is not told.
uint32_t debug_class;

struct listed_entry {
    const void *key;
    void *data;
};

struct list_content {
    indxobj_comparator comparator;
    std::vector<listed_entry> entries;
};

list_content *content_of(const indxobj_list *list) {
    return static_cast<list_content *>(list->impl);
}

} // namespace

std::vector<const void *> data_on(const indxobj_list &list) {
    std::vector<const void *> result;
    if (list.impl != nullptr) {
        for (const listed_entry &entry : content_of(&list)->entries) {
            result.push_back(entry.data);
        }
    }
    return result;
}

extern "C" {

// ---- Message service

static char response_queue_storage;
mts_queue *mts_response_q = reinterpret_cast<mts_queue *>(&response_queue_storage);

uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length,
                      const char *user_name, uint32_t session, uint32_t service, mts_queue *queue,
                      uint32_t wait_class) {
    sent_request request = {};
    request.opcode = opcode;
    request.kind = kind;
    request.has_payload = payload != nullptr;
    request.length = *length;
    if (payload != nullptr) {
        const auto *start = static_cast<const uint8_t *>(payload);
        request.payload.assign(start, start + *length);
    }
    request.expects_reply = reply != nullptr;
    if (user_name != nullptr) {
        request.user = user_name;
    }
    request.session = session;
    request.service = service;
    request.queue = queue;
    request.wait_class = wait_class;
    platform.requests.push_back(request);
    note("request %u kind %u", opcode, kind);

    const scripted_reply answer = platform.answer(request);
    if (reply != nullptr && answer.data) {
        *reply = platform.make_reply(*answer.data);
        *length = static_cast<uint32_t>(answer.data->size());
    }
    if (answer.error_number != 0) {
        errno = answer.error_number;
    }
    return answer.status;
}

const void *mts_payload_get(const mts_message *message) {
    return message->payload ? message->payload->data() : nullptr;
}
uint32_t mts_payload_size(const mts_message *message) {
    return message->payload ? static_cast<uint32_t>(message->payload->size()) : 0;
}

// ---- Keyed lists: entries in the order in which they were added

int indxobj_create(indxobj_list *list, int base, int unique, indxobj_comparator comparator, int ordered) {
    note("indxobj_create");
    platform.lists_created.push_back({list, base, unique, comparator, ordered});
    if (!platform.list_results.empty()) {
        const int result = platform.list_results.front();
        platform.list_results.pop_front();
        if (result != INDXOBJ_CREATED) {
            return result;
        }
    }
    delete content_of(list);
    list->impl = new list_content{comparator, {}};
    return INDXOBJ_CREATED;
}

int indxobj_add(indxobj_list *list, const void *key, void *data) {
    if (list->impl == nullptr) {
        return 0;
    }
    if (!platform.add_results.empty()) {
        const int result = platform.add_results.front();
        platform.add_results.pop_front();
        if (result == 0) {
            return 0;
        }
    }
    auto &entries = content_of(list)->entries;
    const auto present = std::find_if(entries.begin(), entries.end(), [&](const listed_entry &entry) {
        return content_of(list)->comparator(entry.key, key) == 0;
    });
    if (present == entries.end() || platform.list_reading == present_key::is_doubled) {
        entries.push_back({key, data});
    } else if (platform.list_reading == present_key::is_refused) {
        return 0;
    } else {
        *present = {key, data};
    }
    return 1;
}

void *indxobj_find(indxobj_list *list, const void *key, int) {
    if (list->impl == nullptr) {
        return nullptr;
    }
    for (const listed_entry &entry : content_of(list)->entries) {
        if (content_of(list)->comparator(entry.key, key) == 0) {
            return entry.data;
        }
    }
    return nullptr;
}

void *indxobj_remove(indxobj_list *list, const void *key) {
    if (list->impl == nullptr) {
        return nullptr;
    }
    auto &entries = content_of(list)->entries;
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        if (content_of(list)->comparator(entry->key, key) == 0) {
            void *data = entry->data;
            entries.erase(entry);
            return data;
        }
    }
    return nullptr;
}

void indxobj_destroy(indxobj_list *list) {
    note("indxobj_destroy %p", static_cast<void *>(list));
    delete content_of(list);
    list->impl = nullptr;
}

// ---- Event history and debug output

// These may look at files and the clock, so errno means something else afterwards.

const char *sdwrap_dbg_modname = "scripted";

int sdwrap_hist_event_subtype_check(uint32_t module_id, uint32_t event_class) {
    errno = EDOM;
    platform.history_modules.push_back(module_id);
    return platform.history_unwanted.count(event_class) != 0 ? 1 : 0;
}

void sdwrap_hist_event(uint32_t module_id, uint32_t length, const void *record) {
    errno = EDOM;
    platform.history_modules.push_back(module_id);
    const char *text = static_cast<const char *>(record) + sizeof(uint32_t);
    if (length < 5 || memchr(text, '\0', length - 4) != text + length - 5) {
        ++platform.malformed_history_records;
        return;
    }
    trace_line line;
    memcpy(&line.trace_class, record, sizeof line.trace_class);
    line.text = text;
    platform.history.push_back(line);
    platform.history_texts.insert(line.text);
}

int sdwrap_chk_int(uint32_t event_class, uint32_t qualifier1, uint32_t qualifier2, uint32_t qualifier3) {
    errno = EDOM;
    debug_class = event_class;
    if (qualifier1 != 0 || qualifier2 != 0 || qualifier3 != 1) {
        return 0;
    }
    return platform.debug_unwanted.count(event_class) != 0 ? 0 : 1;
}

void buginf(const char *name, const char *format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    platform.debug.push_back({debug_class, text});
    platform.debug_names.emplace_back(name);
}

// ---- Error texts

const char *syserr_format(uint32_t status) {
    static char text[1001];
    snprintf(text, sizeof text, "%s",
             platform.long_error_texts ? std::string(1000, 'e').c_str() : failure_text(status).c_str());
    return text;
}

const char *syserr2str(uint32_t status) {
    return syserr_format(status);
}

// ---- System manager, distribution service

void sysmgr_heartbeat(int blocking) {
    errno = EDOM; // it sends a message, as the traces may
    note("heartbeat %d", blocking);
    platform.heartbeats.push_back(blocking);
}

uint32_t is_tdx_enabled(const char *feature, uint32_t *enabled) {
    note("tdx enabled");
    platform.tdx_features.emplace_back(feature);
    if (platform.tdx_enabled_status == 0) {
        *enabled = platform.tdx_enabled;
    }
    return platform.tdx_enabled_status;
}

uint32_t get_tdx_show_run_mode(const char *feature, uint32_t *mode) {
    note("tdx show-run mode");
    platform.tdx_features.emplace_back(feature);
    if (platform.tdx_show_run_status == 0) {
        *mode = platform.tdx_show_run;
    }
    return platform.tdx_show_run_status;
}

// ---- VSAN library, port manager

// In a program of its own that has the VSAN library itself, that one counts.
#pragma weak vsan_range_config_change_get_info
#pragma weak vsan_range_config_change_get_attr_values

uint32_t vsan_range_config_change_get_info(const void *, uint32_t, uint32_t *condition, uint32_t *vsan_id,
                                           uint32_t *is_vsan_created) {
    const scripted_vsan_event event =
        platform.vsan_event.value_or(scripted_vsan_event{some_failure, scribble, scribble, scribble, {}});
    *condition = event.condition;
    *vsan_id = event.vsan;
    *is_vsan_created = event.is_created;
    return event.status;
}

uint32_t vsan_range_config_change_get_attr_values(const void *payload, uint32_t size, uint32_t key, uint32_t *value,
                                                  uint32_t *old_value) {
    attribute_read read = {payload, size, key, std::nullopt};
    if (platform.send_flag != nullptr) {
        read.send = *platform.send_flag;
    }
    platform.attribute_reads.push_back(read);
    *value = *old_value = scribble;
    if (!platform.vsan_event) {
        return some_failure;
    }
    const auto &attributes = platform.vsan_event->attributes;
    const auto attribute = attributes.find(key);
    if (attribute == attributes.end()) {
        return some_failure;
    }
    *value = htonl(attribute->second);
    return 0;
}

uint32_t pm_cmi_get_active_vsan_port_membership(mts_queue *queue, uint32_t kind, uint32_t *vsan, uint32_t *if_index,
                                                uint8_t *is_static, const char *user_name, uint32_t session,
                                                uint32_t wait_class) {
    note("port membership kind %u", kind);
    membership_request request = {queue, kind, *vsan, *if_index, *is_static, std::nullopt, session, wait_class};
    if (user_name != nullptr) {
        request.user = user_name;
    }
    platform.membership_requests.push_back(request);
    const membership_reply reply = platform.answer(request);
    if (reply.status == 0) {
        *vsan = reply.vsan;
        *if_index = reply.if_index;
        *is_static = reply.is_static;
    }
    if (reply.error_number != 0) {
        errno = reply.error_number;
    }
    return reply.status;
}

// ---- Agent extension library

int register_for_notification(uint32_t event_class, notification_callback callback) {
    note("register_for_notification %u", event_class);
    platform.notifications[event_class] = callback;
    return -1; // as if there were no room: nobody asks
}

void unregister_for_notification(uint32_t event_class) {
    note("unregister_for_notification %u", event_class);
    platform.notifications.erase(event_class);
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *list, const void *value, uint8_t type, size_t length,
                                     const oid *name, size_t name_length) {
    platform.binding_lengths.push_back(length);
    snmp_varlist_add_variable(&list, name, name_length, type, value, length);
    return list;
}

const char *get_snmp_username(int session) {
    return session == 0 && platform.user ? platform.user->c_str() : nullptr;
}
uint32_t get_snmp_sessionid(int session) {
    return session == 0 ? platform.session : 0;
}
uint32_t get_pdu_reqid(void) {
    return platform.pdu;
}

void log_set_error(uint32_t code, uint32_t number) {
    note("log_set_error 0x%08x %u", code, number);
    platform.errors_set.emplace_back(code, number);
}

void log_snmp_error(const snmp_error_record *record) {
    note("log_snmp_error %.80s", record->text);
    platform.error_records.push_back(*record);
    platform.errors_reported.emplace_back(record->code,
                                          std::string(record->text, strnlen(record->text, sizeof record->text)));
}

int snmp_get_allowed_vsans_subtree(allowed_vsan_list *list, const oid *name, size_t length, int pdu_type) {
    note("allowed vsans");
    bool zero = true;
    for (const uint8_t byte : list->bitmap) {
        zero = zero && byte == 0;
    }
    platform.allowed_calls.push_back({list->size, zero, std::vector<oid>(name, name + length), pdu_type});
    if (!platform.allowed_vsans) {
        return 0;
    }
    for (const uint32_t vsan : *platform.allowed_vsans) {
        list->bitmap[vsan / 8] = static_cast<uint8_t>(list->bitmap[vsan / 8] | 1u << vsan % 8);
    }
    return platform.restriction_result;
}

static bool vsan_is_listed(uint32_t vsan, const allowed_vsan_list &list) {
    return vsan < 4096 && (list.bitmap[vsan / 8] >> vsan % 8 & 1) != 0;
}

int snmp_is_vsan_allowed_in_list(uint32_t vsan, allowed_vsan_list list) {
    note("is allowed %u", vsan);
    platform.list_sizes_passed.push_back(list.size);
    return vsan_is_listed(vsan, list) ? platform.permitted_result : 0;
}

int snmp_get_next_allowed_vsan_in_list(uint32_t *vsan, allowed_vsan_list list) {
    note("next allowed after %u", *vsan);
    platform.list_sizes_passed.push_back(list.size);
    if (platform.journal.size() > longest_journal) {
        return 0;
    }
    for (; *vsan < 4096; ++*vsan) {
        if (vsan_is_listed(*vsan, list)) {
            return platform.permitted_result;
        }
    }
    return 0;
}

int snmp_is_vsan_allowed_subtree(uint32_t vsan, const oid *name, size_t length, int pdu_type) {
    platform.vsan_checks.push_back({vsan, std::vector<oid>(name, name + length), pdu_type});
    return !platform.allowed_vsans || platform.allowed_vsans->count(vsan) != 0 ? platform.permitted_result : 0;
}

int intf_chk_vsan_role_allowed(uint32_t if_index, int operation, allowed_vsan_list list) {
    platform.role_checks.push_back({if_index, operation, list.size});
    const auto barred = platform.barred_interfaces.find(if_index);
    return barred == platform.barred_interfaces.end() ? 0 : barred->second;
}

} // extern "C"
