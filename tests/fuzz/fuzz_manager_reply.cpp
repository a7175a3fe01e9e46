/*
 * The bytes are what the manager answers, and which object is asked for how: the read
 * handlers of the scalars and of the VSAN table must survive any reply, release each
 * one exactly once and come to an end.
 *
 *   byte 0  object: which of the registered rows
 *        1  bit 0 GET instead of GETNEXT, bit 1 restricted user, bit 2 same PDU as
 *           before, bit 3 distribution service enabled, bits 4 to 6 form of the name
 *        2  two bytes: the index arc of the name
 *   and for every request that this costs
 *        0  bits 0 and 1: status (0 to 2 success, 3 failed), bit 2 no data,
 *           bits 3 and 4 form of the data
 *        1  then, by form: the raw data's length (two bytes) and content, or a VSAN
 *           record's number (two bytes) and name
 *   and so on until the input ends; then the manager fails every request.
 */
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "agent_calls.h"
#include "scripted_platform.h"

namespace {

class input {
  public:
    input(const uint8_t *data, size_t size) : at(data), end(data + size) {}

    bool empty() const { return at == end; }
    uint8_t byte() { return empty() ? uint8_t{0} : *at++; }
    uint32_t word16() {
        const uint32_t high = byte();
        return high << 8 | byte();
    }

  private:
    const uint8_t *at;
    const uint8_t *end;
};

void require(bool condition, const char *what) {
    if (condition)
        return;
    fprintf(stderr, "broken: %s\n", what);
    abort();
}

scripted_reply next_reply(input &in) {
    if (in.empty())
        return {some_failure, 0, std::nullopt};
    const uint8_t how = in.byte();
    scripted_reply reply;
    reply.status = (how & 3) == 3 ? some_failure : 0;
    if ((how & 4) != 0)
        return reply;
    switch (how >> 3 & 3) {
    case 0: { // bytes as they come
        bytes data(in.word16() % 4096);
        for (uint8_t &byte : data)
            byte = in.byte();
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
void read_once(input &in) {
    const auto &rows = agent.registrations.front().rows;
    registered_object object(rows[in.byte() % rows.size()].magic);
    const uint8_t flags = in.byte();
    const oid_name asked = name_for(object, flags >> 4 & 7, in.word16());
    if ((flags & 4) == 0)
        platform.next_pdu();
    platform.tdx_enabled = flags >> 3 & 1;
    platform.allowed_vsans.reset();
    if ((flags & 2) != 0)
        platform.restrict_to({1, 2, 30, 100, 4095});
    platform.requests.clear();
    platform.journal.clear();

    const read_answer answer = object.read(asked, flags & 1);

    require(platform.replies_held.empty(), "a reply was kept");
    require(platform.journal.size() <= longest_journal, "a search did not end");
    for (size_t i = 1; i < platform.requests.size(); ++i)
        require(platform.requests[i - 1].vsan() < platform.requests[i].vsan(), "a search did not advance");
    for (const sent_request &request : platform.requests)
        require(request.wait_class == 4 && request.service == 15, "a read with another envelope");
    require(answer.name.size() <= MAX_OID_LEN, "a name too long");
    if (!answer.present)
        return;
    require(answer.length <= 36, "a value longer than any object has");
    // The agent copies the value: all of it must be there.
    const bytes copy(answer.value, answer.value + answer.length);
    require(copy.size() == answer.length, "a value without its bytes");
    require(answer.name == asked || answer.name.size() == object.name().size() + 1, "a name of another form");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    init_vsan_mib();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    platform.reset();
    input in(data, size);
    platform.manager = [&in](const sent_request &) { return next_reply(in); };
    while (!in.empty())
        read_once(in);
    return 0;
}
