// SPDX-License-Identifier: Apache-2.0
// The bytes are what the managers answer, and which object is asked for how: every read
// handler must survive any reply, release each one exactly once and come to an end.
//
//   byte 0  object: which of the registered rows
//        1  bit 0 GET instead of GETNEXT, bit 1 restricted user, bit 2 same PDU as
//           before, bit 3 distribution service enabled, bits 4 to 6 form of the name,
//           bit 7 some interfaces barred
//        2  two bytes: the index arc of the name
//   and for every request that this costs
//        0  bits 0 and 1: status (0 to 2 success, 3 failed), bit 2 no data,
//           bits 3 and 4 form of the data, bits 5 and 6 which failure, bit 7 the
//           forms of the interface and timer tables
//        1  then, by form: the raw data's length (two bytes) and content, or a record's
//           numbers (two bytes each) and name
//   or, for the port manager
//        0  bits 0 and 1: status as above, bit 2 large numbers, bit 3 static
//        1  the pair's VSAN and interface (two bytes each)
//   and so on until the input ends; then the managers fail every request.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "agent_calls.h"
#include "fuzz_input.h"
#include "scripted_platform.h"

namespace {

// Statuses that a handler may treat in its own way.
uint32_t failure(uint8_t how) {
    constexpr uint32_t statuses[] = {some_failure, 0x40190002u, 0x40190028u, UINT32_MAX};
    return statuses[how >> 5 & 3];
}

// A record of the interface table or the timer table.
bytes table_record(fuzz_input &in, unsigned form) {
    const uint32_t first = in.word16();
    const uint32_t second = in.word16();
    bytes record;
    switch (form) {
    case 0:
        return if_record(first, second, 0);
    case 1:
        return timer_record(8, second, 1, 0, first, 0);
    case 2: // cut off
        record = timer_record(8, 0, 1, 0, first, 0);
        record.resize(second % (record.size() + 1));
        return record;
    default: // numbers beyond every bound
        return if_record(first * 65537, second * 65537, 0);
    }
}

membership_reply next_pair(fuzz_input &in) {
    if (in.empty()) {
        return {some_failure};
    }
    const uint8_t how = in.byte();
    const uint32_t factor = (how & 4) != 0 ? 65537 : 1;
    membership_reply reply;
    reply.status = (how & 3) == 3 ? some_failure : 0;
    reply.vsan = in.word16() * factor;
    reply.if_index = in.word16() * factor;
    reply.is_static = how >> 3 & 1;
    return reply;
}

scripted_reply next_reply(fuzz_input &in) {
    if (in.empty()) {
        return {some_failure, 0, std::nullopt};
    }
    const uint8_t how = in.byte();
    scripted_reply reply;
    reply.status = (how & 3) == 3 ? failure(how) : 0;
    if ((how & 4) != 0) {
        return reply;
    }
    if ((how & 0x80) != 0) {
        reply.data = table_record(in, how >> 3 & 3);
        return reply;
    }
    switch (how >> 3 & 3) {
    case 0: { // bytes as they come
        bytes data(in.word16() % 4096);
        for (uint8_t &byte : data) {
            byte = in.byte();
        }
        reply.data = data;
        break;
    }
    case 1: { // a whole record
        vsan_row row;
        row.index = in.word16();
        row.name.assign(in.byte() % 40, 'n');
        row.interop = in.byte();
        reply.data = row_reply(row);
        break;
    }
    case 2: { // a record that is cut off
        vsan_row row;
        row.index = in.word16();
        bytes data = row_reply(row);
        data.resize(in.word16() % (data.size() + 1));
        reply.data = data;
        break;
    }
    default: // the words of a scalar
        reply.data = words({in.word16() << 16 | in.word16(), in.word16() << 16 | in.word16()});
        break;
    }
    return reply;
}

oid_name name_for(const registered_object &object, unsigned form, oid index) {
    switch (form) {
    case 0:
        return object.name();
    case 1:
        return object.instance({index});
    case 2:
        return object.instance({index, 7});
    case 3:
        return object.instance({index * 65537});
    case 4:
        return {1, 3, 6};
    case 5: {
        oid_name longest = object.instance({index});
        longest.resize(MAX_OID_LEN, 1);
        return longest;
    }
    default:
        return object.instance({0});
    }
}

// One read, judged by the rules that hold whatever the manager answers.
void read_once(fuzz_input &in) {
    const auto &rows = agent.registrations.front().rows;
    registered_object object(rows[in.byte() % rows.size()].magic);
    const uint8_t flags = in.byte();
    const oid_name asked = name_for(object, flags >> 4 & 7, in.word16());
    if ((flags & 4) == 0) {
        platform.next_pdu();
    }
    platform.tdx_enabled = flags >> 3 & 1;
    platform.allowed_vsans.reset();
    if ((flags & 2) != 0) {
        platform.restrict_to({1, 2, 30, 100, 4095});
    }
    platform.barred_interfaces.clear();
    if ((flags & 0x80) != 0) {
        platform.barred_interfaces = {{1, 1}, {2, -1}};
    }
    platform.requests.clear();
    platform.membership_requests.clear();
    platform.journal.clear();

    const read_answer answer = object.read(asked, flags & 1);

    require(platform.replies_held.empty(), "a reply was kept");
    // Passing over a VSAN without a timer costs two requests.
    require(platform.requests.size() <= 2 * 4097, "a search did not end");
    require(platform.membership_requests.size() <= 4097, "a search for a pair did not end");
    for (const sent_request &request : platform.requests) {
        require(request.wait_class == 4 && request.service == 15, "a read with another envelope");
    }
    require(answer.name.size() <= MAX_OID_LEN, "a name too long");
    if (!answer.present) {
        return;
    }
    require(answer.length <= 36, "a value longer than any object has");
    // The agent copies the value: all of it must be there.
    const bytes copy(answer.value, answer.value + answer.length);
    require(copy.size() == answer.length, "a value without its bytes");
    const size_t index_arcs = object.var.magic == VSANMEMBERSHIPSUMMARYIFINDEX ? 2 : 1;
    require(answer.name == asked || answer.name.size() == object.name().size() + index_arcs, "a name of another form");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    init_vsan_mib();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    platform.reset();
    fuzz_input in(data, size);
    platform.manager = [&in](const sent_request &) { return next_reply(in); };
    platform.port_manager = [&in](const membership_request &) { return next_pair(in); };
    while (!in.empty()) {
        read_once(in);
    }
    return 0;
}
