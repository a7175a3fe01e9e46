// SPDX-License-Identifier: Apache-2.0
#include "agent_calls.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "scripted_platform.h"

scripted_agent agent;

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __wrap_register_mib(const char *descriptor, const variable *rows, size_t width, size_t count, const oid *root,
                        size_t root_length) {
    platform.journal.emplace_back("register_mib");
    registration made;
    made.descriptor = descriptor;
    made.width = width;
    made.root.assign(root, root + root_length);
    for (size_t i = 0; i < count; ++i) {
        variable7 row;
        memcpy(&row, reinterpret_cast<const char *>(rows) + i * width, sizeof row);
        made.rows.push_back(row);
    }
    agent.registrations.push_back(made);
    return agent.register_result;
}

int __wrap_unregister_mib(oid *name, size_t length) {
    platform.journal.emplace_back("unregister_mib");
    agent.unregistered.emplace_back(name, name + length);
    return MIB_UNREGISTERED_OK;
}

void __real_snmp_set_detail(const char *text);
void __wrap_snmp_set_detail(const char *text) {
    agent.details.emplace_back(text);
    __real_snmp_set_detail(text);
}

int __wrap_snmp_get_do_debugging(void) {
    return agent.debugging ? 1 : 0;
}

u_long __real_netsnmp_timeval_uptime(timeval *time);
u_long __wrap_netsnmp_timeval_uptime(timeval *time) {
    return agent.uptime ? *agent.uptime : __real_netsnmp_timeval_uptime(time);
}

static void record_debug(const char *function, const char *token, const char *format, va_list arguments) {
    char text[300];
    vsnprintf(text, sizeof text, format, arguments);
    agent.debug.push_back(std::string(function) + " " + token + " " + text);
}

void __wrap_debugmsgtoken(const char *token, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record_debug("debugmsgtoken", token, format, arguments);
    va_end(arguments);
}

void __wrap_debugmsg(const char *token, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record_debug("debugmsg", token, format, arguments);
    va_end(arguments);
}

// Whether the allocation about to be made is the one that has to fail.
static bool allocation_fails() {
    if (!agent.allocations_before_failure) {
        return false;
    }
    if ((*agent.allocations_before_failure)-- != 0) {
        return false;
    }
    agent.allocations_before_failure.reset();
    ++agent.allocations_failed;
    return true;
}

static void *watch(void *memory, size_t size) {
    if (size == sizeof(vsanEntry) && memory != nullptr) {
        agent.records_held.insert(memory);
    }
    return memory;
}

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
    return allocation_fails() ? nullptr : watch(__real_malloc(size), size);
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
    return allocation_fails() ? nullptr : watch(__real_calloc(count, size), count * size);
}

void __real_free(void *memory);
void __wrap_free(void *memory) {
    // Memory released twice is no longer held and ends in the allocator's own check.
    if (memory != nullptr) {
        platform.replies_held.erase(memory);
        agent.records_held.erase(memory);
    }
    __real_free(memory);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

} // extern "C"

int64_t read_answer::number() const {
    if (!present || length != 4) {
        return INT64_MIN;
    }
    int32_t number;
    memcpy(&number, value, sizeof number);
    return number;
}

std::string read_answer::text() const {
    return present ? std::string(reinterpret_cast<const char *>(value), length) : "(null)";
}

registered_object::registered_object(uint8_t magic) : var() {
    if (agent.registrations.empty()) {
        throw std::logic_error("nothing is registered");
    }
    const registration &made = agent.registrations.back();
    for (const variable7 &row : made.rows) {
        if (row.magic != magic) {
            continue;
        }
        var.magic = row.magic;
        var.type = static_cast<decltype(var.type)>(row.type);
        var.acl = row.acl;
        var.findVar = row.findVar;
        var.namelen = static_cast<u_char>(made.root.size() + row.namelen);
        memcpy(var.name, made.root.data(), made.root.size() * sizeof(oid));
        memcpy(var.name + made.root.size(), row.name, row.namelen * sizeof(oid));
        return;
    }
    throw std::logic_error("no object has this magic");
}

oid_name registered_object::instance(std::initializer_list<oid> arcs) const {
    oid_name result = name();
    result.insert(result.end(), arcs);
    return result;
}

read_answer registered_object::read(const oid_name &asked, int exact, WriteMethod *write_method) {
    // The agent's buffer, on the heap so that going past its end is seen.
    const auto buffer = std::make_unique<oid[]>(MAX_OID_LEN);
    std::copy(asked.begin(), asked.end(), buffer.get());

    read_answer answer;
    size_t name_length = asked.size();
    size_t value_length = 0xBADu;
    answer.write_method = write_method;
    answer.value = var.findVar(&var, buffer.get(), &name_length, exact, &value_length, &answer.write_method);
    answer.present = answer.value != nullptr;
    answer.length = value_length;
    answer.name.assign(buffer.get(), buffer.get() + name_length);
    return answer;
}

read_answer get(uint8_t magic, std::initializer_list<oid> instance) {
    registered_object object(magic);
    return object.get(object.instance(instance));
}

read_answer get_next(uint8_t magic, std::initializer_list<oid> instance) {
    registered_object object(magic);
    return object.get_next(object.instance(instance));
}

int write(WriteMethod *method, int phase, uint8_t type, const bytes &value) {
    const auto buffer = std::make_unique<u_char[]>(value.size());
    std::copy(value.begin(), value.end(), buffer.get());
    oid name[MAX_OID_LEN] = {};
    return method(phase, buffer.get(), type, value.size(), nullptr, name, 13);
}

int write(WriteMethod *method, int phase, uint8_t type, const bytes &value, const oid_name &name) {
    const auto buffer = std::make_unique<u_char[]>(value.size());
    std::copy(value.begin(), value.end(), buffer.get());
    const auto arcs = std::make_unique<oid[]>(name.size());
    std::copy(name.begin(), name.end(), arcs.get());
    const int error = method(phase, buffer.get(), type, value.size(), nullptr, arcs.get(), name.size());
    if (!std::equal(name.begin(), name.end(), arcs.get())) {
        throw std::logic_error("a write method changed its name");
    }
    return error;
}

bytes as_long(int64_t number) {
    const auto value = static_cast<long>(number);
    bytes result(sizeof value);
    memcpy(result.data(), &value, sizeof value);
    return result;
}

bytes as_eight_bytes(int64_t number) {
    bytes result(sizeof number);
    memcpy(result.data(), &number, sizeof number);
    return result;
}

bytes as_word(uint32_t number, size_t length) {
    bytes result(sizeof number);
    memcpy(result.data(), &number, sizeof number);
    result.resize(length);
    return result;
}
