// SPDX-License-Identifier: Apache-2.0
#include "oryx_fake_platform.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "mts_counters.h"
#include "mts_events.h"
#include "mts_settings.h"
#include "syserr.h"

struct mts_queue {
    int unused;
};

struct mts_message {
    uint32_t event_class;
    std::vector<uint8_t> payload;
};

FakeSwitch fake_switch;
std::string fake_status_text;

namespace {

mts_queue the_queue;
mts_message the_message;

void close_pipe() {
    for (int &end : fake_switch.pipe_) {
        if (end >= 0) {
            close(end);
        }
        end = -1;
    }
}

void put_word(std::vector<uint8_t> &bytes, uint32_t word) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(word >> shift));
    }
}

} // namespace

mts_queue *mts_response_q = &the_queue;

void FakeSwitch::publish(uint32_t event_class, std::vector<uint8_t> payload) {
    events_.emplace_back(event_class, std::move(payload));
    const char byte = 'e';
    if (write(pipe_[1], &byte, 1) != 1) {
        abort();
    }
}

void FakeSwitch::hang_up() {
    hung_up_ = true;
    const char byte = 'x';
    if (write(pipe_[1], &byte, 1) != 1) {
        abort();
    }
}

FakeSwitch::~FakeSwitch() {
    for (int end : pipe_) {
        if (end >= 0) {
            close(end);
        }
    }
}

void reset_fake_switch() {
    close_pipe();
    fake_switch.~FakeSwitch();
    new (&fake_switch) FakeSwitch;
    fake_status_text = "a status";
}

std::vector<uint8_t> role_reply(uint32_t restricted, const std::vector<uint32_t> &vsans,
                                const std::vector<std::pair<uint32_t, uint32_t>> &ranges) {
    std::vector<uint8_t> bytes;
    put_word(bytes, restricted);
    uint8_t bitmap[512] = {};
    for (uint32_t vsan : vsans) {
        bitmap[vsan / 8] = static_cast<uint8_t>(bitmap[vsan / 8] | 0x80 >> vsan % 8);
    }
    bytes.insert(bytes.end(), bitmap, bitmap + sizeof(bitmap));
    put_word(bytes, static_cast<uint32_t>(ranges.size()));
    for (const auto &[first, last] : ranges) {
        put_word(bytes, first);
        put_word(bytes, last);
    }
    return bytes;
}

extern "C" {

uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length, const char *,
                      uint32_t, uint32_t service, mts_queue *queue, uint32_t) {
    fake_switch.requests.push_back(
        {opcode, kind, service, std::string(static_cast<const char *>(payload), *length), queue});
    fake_switch.generation = fake_switch.generation_meanwhile.value_or(fake_switch.generation);
    *reply = nullptr;
    *length = 0;
    if (fake_switch.reply) {
        const std::vector<uint8_t> &bytes = *fake_switch.reply;
        // Exactly as large as the reply, so that a read past its end is seen.
        *reply = malloc(bytes.empty() ? 1 : bytes.size());
        if (!bytes.empty()) {
            memcpy(*reply, bytes.data(), bytes.size());
        }
        *length = static_cast<uint32_t>(bytes.size());
    }
    errno = fake_switch.error_number;
    return fake_switch.status;
}

void mts_count_requests(const char *) {}

uint64_t mts_settings_generation(void) {
    return fake_switch.generation;
}

int mts_memory_is_other_version(void) {
    return fake_switch.has_other_memory;
}

int mts_events_open(const uint32_t *classes, size_t count) {
    close_pipe();
    ++fake_switch.connect_attempts;
    if (!fake_switch.reachable) {
        errno = ECONNREFUSED;
        return -1;
    }
    fake_switch.hung_up_ = false;
    fake_switch.events_.clear();
    fake_switch.subscriptions.emplace_back(classes, classes + count);
    if (pipe2(fake_switch.pipe_, O_NONBLOCK | O_CLOEXEC) != 0) {
        abort();
    }
    return fake_switch.pipe_[0];
}

int mts_events_next(const mts_message **event) {
    *event = nullptr;
    if (fake_switch.pipe_[0] < 0) {
        errno = ENOTCONN;
        return -1;
    }
    if (fake_switch.hung_up_ && fake_switch.events_.empty()) {
        errno = ECONNRESET;
        return -1;
    }
    if (fake_switch.events_.empty()) {
        return 0;
    }
    char byte;
    if (read(fake_switch.pipe_[0], &byte, 1) != 1) {
        abort();
    }
    the_message = {fake_switch.events_.front().first, fake_switch.events_.front().second};
    fake_switch.events_.pop_front();
    *event = &the_message;
    return 1;
}

void mts_events_close(void) {
    close_pipe();
    the_message = {};
}

uint32_t mts_message_class(const mts_message *message) {
    return message->event_class;
}

const void *mts_payload_get(const mts_message *message) {
    return message->payload.empty() ? nullptr : message->payload.data();
}

uint32_t mts_payload_size(const mts_message *message) {
    return static_cast<uint32_t>(message->payload.size());
}

const char *syserr_format(uint32_t) {
    return fake_status_text.c_str();
}

} // extern "C"
