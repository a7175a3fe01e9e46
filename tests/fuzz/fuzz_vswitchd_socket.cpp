// SPDX-License-Identifier: Apache-2.0
// Whatever a client sends, in whatever portions: the daemon answers in well-formed frames
// or ends the conversation.
#include <cstdlib>

#include "contract/frames.h"
#include "model/configuration.h"
#include "network/conversation.h"

using namespace vswitch;

namespace {

ServedSwitch make_switch() {
    return ServedSwitch(parse_configuration(R"({
        "vsans": [{"id": 10, "timers": {"ratov": 20000}}, {"id": 4095, "state": "suspended"}],
        "ports": [{"ifIndex": 1}, {"ifIndex": 16777216, "vsan": 10}, {"ifIndex": 4294967295, "vsan": 4095}],
        "tdx": {"fctimer": {"enabled": true, "timers": {"10": {"ratov": 30000}}}}})",
                                            "fuzz"),
                        parse_roles(R"({"roles": [{"name": "r", "vsans": ["1-10"], "interfaces": ["1-5"],
                                             "users": ["alice"]}]})",
                                    "fuzz"));
}

// The output must be replies, pongs and events, one after the other, none cut short.
void check(Bytes output) {
    while (!output.empty()) {
        const auto magic = load_word(output, 0);
        const auto type = load_word(output, 4);
        const auto size = load_word(output, 12);
        if (magic != MTS_WIRE_MAGIC || !size || *size > MTS_WIRE_MAX_BODY || output.size() - MTS_WIRE_HEADER < *size) {
            abort();
        }
        const bool is_reply = type == MTS_FRAME_REPLY && *size >= MTS_WIRE_REPLY_FIXED;
        const bool is_event = type == MTS_FRAME_EVENT && *size >= MTS_WIRE_EVENT_FIXED;
        if (!is_reply && !is_event && !(type == MTS_FRAME_PONG && *size == 0)) {
            abort();
        }
        output = output.subspan(size_t{MTS_WIRE_HEADER} + *size);
    }
}

} // namespace

// The first byte says into how large portions the rest is cut.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    ServedSwitch target = make_switch(); // a new one, for requests change it
    const size_t portion = data[0] == 0 ? size : data[0];
    Bytes input(data + 1, size - 1);
    vswitch::Conversation conversation(target);
    Buffer received;
    Buffer output;
    while (!input.empty() && !conversation.broken() && !conversation.is_ended()) {
        const Bytes part = input.first(std::min(portion, input.size()));
        input = input.subspan(part.size());
        received.insert(received.end(), part.begin(), part.end());
        size_t used = 0;
        bool held_up = false;
        do {
            output.clear();
            used = conversation.serve(received, output);
            if (used > received.size() || output.size() > vswitch::Conversation::output_limit + MTS_WIRE_MAX_BODY) {
                abort();
            }
            check(output);
            output.clear();
            conversation.subscriber().take(output, vswitch::Conversation::output_limit);
            check(output);
            held_up = conversation.delay().has_value();
            if (held_up) {
                conversation.resume();
            }
            received.erase(received.begin(), received.begin() + static_cast<ptrdiff_t>(used));
        } while (used > 0 || held_up);
        if (received.size() > MTS_WIRE_HEADER + MTS_WIRE_MAX_BODY && !conversation.broken() &&
            !conversation.is_ended()) {
            abort(); // a whole frame must not be left unserved
        }
    }
    return 0;
}
