// SPDX-License-Identifier: Apache-2.0
// Requests: one connection to the switch, one request at a time on it. They go through
// memory shared with the switch where it offers that, otherwise over the socket.
//
// The connection's life, from one state to the next (enum class link_state):
//
//             connect         SHARE         SHARED           sleep
//      closed --------> fresh ------> asked ------> in_memory <-----> knocked
//                         ^             |               ^ |     next     |
//          sign of life   |    no reply |        SHARED | | request      |
//             connect,    |             v               | v              |
//      shunned -------> silent <--------+---------------+----------------+
//                PING
//
//   who                from                     to
//   connect_to_switch  closed                   fresh
//                      shunned                  silent, with a PING
//   ask_for_memory     fresh                    asked
//   take_idle_frame    silent                   fresh, whatever has come from the switch
//                      any with a connection    in_memory, when a SHARED has come
//   fall_asleep        in_memory                knocked
//   look_at_socket     knocked                  in_memory, before the next request
//   send_ping          asked, in_memory,        silent, when there was no reply in time
//                      knocked
//   give_up            those three              shunned, when the switch takes nothing
//   drop_connection    any with a connection    closed, when it is cut or broken; shunned
//                                               when it is silent and takes no PING either
//
// A manager that does not answer in time costs the agent one whole wait, not one
// for each request that follows. After a time-out the connection is silent: a PING
// is sent behind the unanswered request, and until anything comes from the switch,
// further requests fail at once. The first sign of life, a late reply or the PONG,
// ends that. Without the PING, a manager that lost one single request would stay
// silent for ever.
//
// What has come already is looked at before each request, which costs no waiting. A
// sign of life is waited for once in each silence, so that a manager that lost one
// request can serve the next, and after that once in each second, so that one that
// has just come back can, too: one message to the agent may lead to thousands of
// requests, and others wait for it. A silent manager takes a whole wait, and after
// that no more than a fiftieth of the agent's time.
//
// A request is sent a second time only if the first could not go out whole, or could be
// taken back from the memory, so that the switch cannot have acted on it.
#include "mts.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "contract/big_endian.h"
#include "mts_counters.h"
#include "mts_memory.h"
#include "mts_settings.h"
#include "mts_stream.h"

// What the connection is like. All zero is the first.
enum class link_state {
    closed,    // none; the next request makes one
    shunned,   // none, since the switch took nothing; the next one begins with a PING
    fresh,     // just made, or alive again; memory is to be asked for
    asked,     // memory may be given or not; until it is, requests go over the socket
    in_memory, // requests go through the memory, and the socket is left alone
    knocked,   // the same, but on the socket there may be a KNOCK that nobody has waited for
    silent     // a request was not answered in time, and nothing has come since
};

// Opaque to callers: the process's connection for requests. Nothing happens to it
// when the library is loaded; the agent may still fork and change its user.
struct mts_queue {
    link_state state;
    mts_stream stream;                    // open but while closed or shunned
    mts_memory memory;                    // mapped while in_memory or knocked
    mts_time next_grace;                  // while silent or shunned: when a sign of life may be waited for
    uint32_t correlation;                 // of the latest request or PING
    uint8_t answer[MTS_SHARED_MAX_FRAME]; // the latest that came through the memory
};

namespace {

// What one unit of a wait class means. The shortest wait is one unit.
constexpr mts_time WAIT_CLASS_UNIT = MTS_WIRE_WAIT_UNIT_MS * MTS_MILLISECOND;

// How long a silent connection is given to show life, and how often.
constexpr mts_time SILENCE_GRACE = 20 * MTS_MILLISECOND;
constexpr mts_time GRACE_INTERVAL = 50 * SILENCE_GRACE;

mts_queue process_queue;

[[gnu::destructor]] void close_at_unload(void) {
    mts_memory_unmap(process_queue.memory);
    mts_stream_close(process_queue.stream);
}

// The arguments of one request that travel.
struct request {
    uint32_t service;
    uint32_t opcode;
    uint32_t kind;
    uint32_t length;
    uint32_t session;
    std::span<const uint8_t> payload;
    std::span<const uint8_t> user;
};

size_t body_length_of(const request &what) {
    return MTS_WIRE_REQUEST_FIXED + what.payload.size() + what.user.size();
}

// What the states say beside their names.
bool is_connected(const mts_queue &queue) {
    return queue.state != link_state::closed && queue.state != link_state::shunned;
}

bool has_memory(const mts_queue &queue) {
    return queue.state == link_state::in_memory || queue.state == link_state::knocked;
}

bool is_silent(const mts_queue &queue) {
    return queue.state == link_state::silent || queue.state == link_state::shunned;
}

bool goes_through_memory(const mts_queue &queue, const request &what) {
    return has_memory(queue) && MTS_WIRE_HEADER + body_length_of(what) <= MTS_SHARED_MAX_FRAME;
}

// How a step of an exchange ended.
enum class outcome {
    done,
    unsent, // the switch has not seen a whole request; errno says why
    failed  // errno says why
};

outcome fail(int reason) {
    errno = reason;
    return outcome::failed;
}

// The connection is of no further use.
outcome drop_connection(mts_queue &queue, link_state next, outcome result) {
    mts_memory_unmap(queue.memory);
    mts_stream_close(queue.stream);
    queue.state = next;
    return result;
}

// A silence begins, or goes on; one that begins has its grace at once. A request may
// still be under way in the memory, so that it is let go.
void fall_silent(mts_queue &queue) {
    if (!is_silent(queue)) {
        queue.next_grace = 0;
    }
    mts_memory_unmap(queue.memory);
    queue.state = link_state::silent;
}

// The switch does not even take what it is sent.
outcome give_up(mts_queue &queue) {
    fall_silent(queue);
    errno = ETIMEDOUT;
    return drop_connection(queue, link_state::shunned, outcome::failed);
}

// Whether a frame is the answer to something that was sent before the latest
// request. Correlations count upwards and wrap around.
bool is_earlier(const mts_queue &queue, const mts_frame &frame) {
    return static_cast<int32_t>(queue.correlation - frame.correlation) > 0;
}

bool is_pong(const mts_frame &frame) {
    return frame.type == MTS_FRAME_PONG && frame.body.empty();
}

bool is_knock(const mts_frame &frame) {
    return frame.type == MTS_FRAME_KNOCK && frame.body.empty();
}

bool is_shared(const mts_frame &frame) {
    return frame.type == MTS_FRAME_SHARED && frame.body.empty();
}

// Whether a frame can be met while no request is under way: a late reply or a PONG, the
// answer to SHARE, or a KNOCK that nobody waited for.
bool is_expected_when_idle(const mts_queue &queue, const mts_frame &frame) {
    const bool is_known = is_earlier(queue, frame) || frame.correlation == queue.correlation;
    return (is_known && (frame.type == MTS_FRAME_REPLY || is_pong(frame) || is_shared(frame))) || is_knock(frame);
}

// Takes what such a frame brings. Whatever it is, it is a sign of life.
void take_idle_frame(mts_queue &queue, const mts_frame &frame) {
    if (queue.state == link_state::silent) {
        queue.state = link_state::fresh;
    }
    if (is_shared(frame)) {
        const link_state otherwise = queue.state == link_state::fresh ? link_state::fresh : link_state::asked;
        mts_memory_unmap(queue.memory);
        const bool is_given = mts_memory_map(queue.memory, mts_stream_take_descriptor(queue.stream));
        queue.state = is_given ? link_state::in_memory : otherwise;
    }
}

// Receives and drops what earlier requests left behind. With a deadline, waits for
// the first frame. `done` when at least one has come.
mts_io drop_old_frames(mts_queue &queue, mts_time deadline) {
    mts_frame frame;
    mts_io result = mts_stream_receive(queue.stream, frame, deadline, true);
    if (result != mts_io::done) {
        return result;
    }
    // No more than this can be outstanding; a switch that sends more is broken.
    for (int limit = 1000; limit > 0; --limit) {
        if (!is_expected_when_idle(queue, frame)) {
            break;
        }
        take_idle_frame(queue, frame);
        result = mts_stream_receive(queue.stream, frame, MTS_NO_WAIT, true);
        if (result != mts_io::done) {
            return result == mts_io::timeout ? mts_io::done : result;
        }
    }
    errno = EPROTO;
    return mts_io::bad;
}

// Sends a frame without a body, if that is possible at once.
mts_io send_sign(mts_queue &queue, mts_frame_type type, uint32_t correlation) {
    uint8_t header[MTS_WIRE_HEADER];
    mts_frame_write_header(header, {type, correlation, 0});
    struct iovec part = {header, sizeof header};
    return mts_stream_send(queue.stream, &part, 1, MTS_NO_WAIT);
}

// Asks a silent switch for a sign of life. One that does not even take this loses its
// connection; the next one starts with a PING.
void send_ping(mts_queue &queue) {
    fall_silent(queue);
    const mts_io sent = send_sign(queue, MTS_FRAME_PING, ++queue.correlation);
    if (sent != mts_io::done) {
        drop_connection(queue, sent == mts_io::timeout ? link_state::shunned : link_state::closed, outcome::failed);
    }
}

// Asks for memory, once; the answer comes in front of that to the next request. A switch
// that is silent is not asked for more; one whose answer was late has given memory already.
void ask_for_memory(mts_queue &queue) {
    if (queue.state != link_state::fresh) {
        return;
    }
    queue.state = link_state::asked;
    if (send_sign(queue, MTS_FRAME_SHARE, ++queue.correlation) != mts_io::done) {
        drop_connection(queue, link_state::closed, outcome::failed);
    }
}

// Waits for anything from a silent switch, unless it was waited for not long ago.
outcome await_sign_of_life(mts_queue &queue, mts_time deadline) {
    const mts_time now = mts_now();
    if (now < queue.next_grace) {
        return fail(ETIMEDOUT);
    }
    queue.next_grace = now + GRACE_INTERVAL;
    const mts_time grace_end = now + SILENCE_GRACE;
    switch (drop_old_frames(queue, grace_end < deadline ? grace_end : deadline)) {
    case mts_io::done:
        ask_for_memory(queue);
        return is_connected(queue) ? outcome::done : outcome::unsent;
    case mts_io::timeout:
        return fail(ETIMEDOUT);
    case mts_io::lost:
    case mts_io::bad:
        break;
    }
    return drop_connection(queue, link_state::closed, outcome::unsent);
}

// Looks at what has come since the last request, which may be that the connection died.
void look_at_socket(mts_queue &queue) {
    if (queue.state == link_state::knocked) {
        queue.state = link_state::in_memory;
    }
    const mts_io old = drop_old_frames(queue, MTS_NO_WAIT);
    if (old == mts_io::lost || old == mts_io::bad) {
        drop_connection(queue, link_state::closed, outcome::failed);
    }
}

// Makes a connection. False with errno when that is not possible.
bool connect_to_switch(mts_queue &queue) {
    mts_counters_see_to_file();
    const bool was_silent = is_silent(queue);
    if (mts_stream_open(queue.stream) != 0) {
        queue.state = was_silent && errno == ETIMEDOUT ? link_state::shunned : link_state::closed;
        return false;
    }
    if (was_silent) {
        send_ping(queue);
    } else {
        queue.state = link_state::fresh;
    }
    return true;
}

// Makes the queue's connection one that a request can be sent on: connects when
// there is none, when it died since the last request, or when it belongs to the
// process that this one was forked from.
outcome prepare(mts_queue &queue, mts_time deadline) {
    if (mts_stream_is_inherited(queue.stream)) {
        drop_connection(queue, link_state::closed, outcome::failed);
    }
    // The socket stays untouched while all goes well: that the switch is gone is
    // noticed when no answer comes.
    if (queue.state == link_state::in_memory) {
        return outcome::done;
    }
    if (is_connected(queue)) {
        look_at_socket(queue);
    }
    if (!is_connected(queue) && !connect_to_switch(queue)) {
        return outcome::failed;
    }
    ask_for_memory(queue);
    switch (queue.state) {
    case link_state::closed:
        errno = ECONNRESET;
        return outcome::unsent;
    case link_state::shunned:
        return fail(ETIMEDOUT);
    case link_state::silent:
        return await_sign_of_life(queue, deadline);
    case link_state::fresh:
    case link_state::asked:
    case link_state::in_memory:
    case link_state::knocked:
        break;
    }
    return outcome::done;
}

// Has a sleeping switch look at the request in the memory.
outcome wake_switch(mts_queue &queue) {
    // What goes wrong here shows when no answer comes, but for a full socket: then the
    // switch has not looked for a long time.
    if (send_sign(queue, MTS_FRAME_KNOCK, 0) != mts_io::timeout) {
        return outcome::done;
    }
    mts_memory_withdraw(queue.memory);
    return give_up(queue);
}

outcome send_request(mts_queue &queue, const request &what, mts_time deadline) {
    const size_t body_length = body_length_of(what);
    uint8_t header[MTS_WIRE_HEADER];
    mts_frame_write_header(header, {MTS_FRAME_REQUEST, ++queue.correlation, static_cast<uint32_t>(body_length)});

    uint8_t fixed[MTS_WIRE_REQUEST_FIXED];
    write_be32(fixed, what.service);
    write_be32(fixed + 4, what.opcode);
    write_be32(fixed + 8, what.kind);
    write_be32(fixed + 12, what.length);
    write_be32(fixed + 16, what.session);
    write_be32(fixed + 20, static_cast<uint32_t>(what.payload.size()));
    write_be32(fixed + 24, static_cast<uint32_t>(what.user.size()));

    // They are only read, although their type does not say so.
    struct iovec parts[] = {{header, sizeof header},
                            {fixed, sizeof fixed},
                            {const_cast<uint8_t *>(what.payload.data()), what.payload.size()},
                            {const_cast<uint8_t *>(what.user.data()), what.user.size()}};
    constexpr size_t count = sizeof parts / sizeof *parts;
    if (goes_through_memory(queue, what)) {
        const bool must_wake = mts_memory_post(queue.memory, parts, count);
        return must_wake ? wake_switch(queue) : outcome::done;
    }
    switch (mts_stream_send(queue.stream, parts, count, deadline)) {
    case mts_io::done:
        return outcome::done;
    case mts_io::timeout:
        return give_up(queue);
    case mts_io::lost:
    case mts_io::bad:
        break;
    }
    errno = errno == EPIPE ? ECONNRESET : errno;
    return drop_connection(queue, link_state::closed, outcome::unsent);
}

// Announces that this process goes to sleep. False, and it must not, when the switch is
// done with the request.
bool fall_asleep(mts_queue &queue) {
    queue.state = link_state::knocked;
    return mts_memory_fall_asleep(queue.memory);
}

// Waits until the switch is done with the request in the memory.
outcome await_memory(mts_queue &queue, mts_time deadline) {
    bool is_done = mts_memory_watch(queue.memory);
    while (!is_done && fall_asleep(queue)) {
        mts_frame frame;
        mts_io result = mts_stream_receive(queue.stream, frame, deadline, true);
        if (result == mts_io::done) {
            // Not as in receive_reply: other memory would strand the request that waits in this.
            const bool is_left_behind = is_earlier(queue, frame) && !is_shared(frame);
            if (!is_knock(frame) && !(is_left_behind && is_expected_when_idle(queue, frame))) {
                errno = EPROTO;
                result = mts_io::bad;
            } else if (mts_now() < deadline) {
                continue;
            } else { // such frames alone must not keep this request waiting for ever
                result = mts_io::timeout;
            }
        }
        const int reason = errno;
        const bool is_unserved = mts_memory_withdraw(queue.memory);
        if (!is_unserved && mts_memory_is_done(queue.memory)) {
            break; // at the last moment
        }
        if (result == mts_io::timeout) {
            send_ping(queue);
            return fail(ETIMEDOUT);
        }
        errno = reason;
        return drop_connection(queue, link_state::closed, is_unserved ? outcome::unsent : outcome::failed);
    }
    mts_memory_note_answer(queue.memory);
    return outcome::done;
}

bool is_reply_to_latest(const mts_queue &queue, const mts_frame &frame, mts_reply &reply) {
    return frame.type == MTS_FRAME_REPLY && frame.correlation == queue.correlation &&
           mts_reply_decode(frame.body, reply);
}

// Takes the reply to the latest request from the memory.
outcome read_reply(mts_queue &queue, mts_reply &reply) {
    mts_frame frame;
    size_t size = 0;
    const std::span<const uint8_t> bytes(queue.answer, mts_memory_copy_answer(queue.memory, queue.answer));
    if (mts_frame_decode(bytes, frame, size) == mts_decode::frame && size == bytes.size() &&
        is_reply_to_latest(queue, frame, reply)) {
        return outcome::done;
    }
    errno = EPROTO;
    return drop_connection(queue, link_state::closed, outcome::failed);
}

// Waits for the reply to the latest request. Its data lie in the stream's buffer.
outcome receive_reply(mts_queue &queue, mts_reply &reply, mts_time deadline) {
    for (;;) {
        mts_frame frame;
        mts_io result = mts_stream_receive(queue.stream, frame, deadline, true);
        if (result == mts_io::done && (is_earlier(queue, frame) || is_knock(frame)) &&
            is_expected_when_idle(queue, frame)) {
            take_idle_frame(queue, frame);
            // Replies to others' requests must not keep this one waiting for ever.
            if (mts_now() < deadline) {
                continue;
            }
            result = mts_io::timeout;
        }
        switch (result) {
        case mts_io::done:
            if (is_reply_to_latest(queue, frame, reply)) {
                return outcome::done;
            }
            errno = EPROTO;
            return drop_connection(queue, link_state::closed, outcome::failed);
        case mts_io::timeout:
            send_ping(queue);
            return fail(ETIMEDOUT);
        case mts_io::lost:
        case mts_io::bad:
            return drop_connection(queue, link_state::closed, outcome::failed);
        }
    }
}

outcome exchange(mts_queue &queue, const request &what, mts_reply &reply, mts_time deadline) {
    outcome result = outcome::unsent;
    bool is_in_memory = false;
    for (int attempt = 0; attempt < 2 && result == outcome::unsent; ++attempt) {
        result = prepare(queue, deadline);
        if (result == outcome::done) {
            is_in_memory = goes_through_memory(queue, what);
            result = send_request(queue, what, deadline);
            if (result == outcome::done && is_in_memory) {
                result = await_memory(queue, deadline);
            }
        }
    }
    if (result != outcome::done) {
        return result;
    }
    const bool is_answered_there = is_in_memory && mts_memory_holds_answer(queue.memory);
    return is_answered_there ? read_reply(queue, reply) : receive_reply(queue, reply, deadline);
}

// Hands a reply's data to the caller, in a buffer of their own even if there are
// none of them: the manager's "nothing" differs from no data.
bool hand_over(const mts_reply &reply, void **to, uint32_t &length) {
    if (to == nullptr || !reply.has_data) {
        return true;
    }
    *to = malloc(reply.data.empty() ? 1 : reply.data.size());
    if (*to == nullptr) {
        return false;
    }
    if (!reply.data.empty()) {
        memcpy(*to, reply.data.data(), reply.data.size());
    }
    length = static_cast<uint32_t>(reply.data.size());
    return true;
}

uint32_t no_status(int reason) {
    errno = reason;
    return UINT32_MAX;
}

} // namespace

mts_queue *mts_response_q = &process_queue;

uint32_t cmi_req_resp(uint32_t opcode, uint32_t kind, const void *payload, void **reply, uint32_t *length,
                      const char *user_name, uint32_t session, uint32_t service, mts_queue *queue,
                      uint32_t wait_class) {
    const mts_time units = wait_class == 0 ? 1 : wait_class;
    const mts_time deadline = mts_now() + units * WAIT_CLASS_UNIT;
    if (reply != nullptr) {
        *reply = nullptr;
    }
    if (length == nullptr) {
        return no_status(EINVAL);
    }
    const uint32_t payload_length = *length;
    *length = 0;
    if (queue != &process_queue) {
        return no_status(EINVAL);
    }
    const size_t user_length = user_name == nullptr ? 0 : strnlen(user_name, MTS_WIRE_MAX_USER + 1);
    if (payload_length > MTS_WIRE_MAX_PAYLOAD || user_length > MTS_WIRE_MAX_USER) {
        return no_status(EMSGSIZE);
    }

    const request what = {.service = service,
                          .opcode = opcode,
                          .kind = kind,
                          .length = payload_length,
                          .session = session,
                          .payload = {static_cast<const uint8_t *>(payload), payload == nullptr ? 0 : payload_length},
                          .user = {reinterpret_cast<const uint8_t *>(user_name), user_length}};
    mts_reply answer;
    mts_count_asked(service, opcode, kind);
    if (exchange(*queue, what, answer, deadline) != outcome::done) {
        mts_count(mts_counters_find(service, opcode, kind)->unanswered);
        return UINT32_MAX;
    }
    if (answer.status != 0) {
        mts_count(mts_counters_find(service, opcode, kind)->refused);
    }
    if (!hand_over(answer, reply, *length)) {
        return no_status(ENOMEM);
    }
    return answer.status;
}

uint64_t mts_settings_generation(void) {
    // A switch that is gone no longer says that anything has changed.
    const bool is_current = has_memory(process_queue) && !mts_stream_is_inherited(process_queue.stream) &&
                            !mts_stream_is_cut(process_queue.stream);
    return is_current ? mts_memory_generation(process_queue.memory) : 0;
}

int mts_memory_is_other_version(void) {
    return mts_memory_has_met_other_version();
}
