// SPDX-License-Identifier: Apache-2.0
// SNMPv2c requests over UDP to an agent on this machine, a fixed number of them outstanding.
//
// Messages are made and checked here rather than by Net-SNMP's library: the client shares two
// processors with the agent and the switch, and that library takes longer for a request than the
// agent does.
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "ber.h"
#include "stream.h"

namespace bench {

using namespace ber;

namespace {

constexpr uint32_t max_outstanding = 256; // a request id's lowest octet is its slot
constexpr size_t max_message = 65536;
constexpr timeval patience = {20, 0}; // what is measured may run under a simulator of the processor

// A UDP socket that is connected to an agent on loopback.
class Channel {
  public:
    explicit Channel(uint16_t port) : port_(port), descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (descriptor_ == -1 || setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
            connect(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            throw Failure(fmt::format("no socket for port {}: {}", port, std::strerror(errno)));
        }
    }
    ~Channel() { close(descriptor_); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void send(View message) {
        if (::send(descriptor_, message.data(), message.size(), 0) != static_cast<ssize_t>(message.size())) {
            throw Failure(fmt::format("cannot send to port {}: {}", port_, std::strerror(errno)));
        }
    }

    // The next datagram; it stays until the next call.
    View receive() {
        const ssize_t size = recv(descriptor_, buffer_.data(), buffer_.size(), 0);
        if (size < 0 && errno == EAGAIN) {
            throw Failure(fmt::format("port {} has not answered for {} seconds", port_, patience.tv_sec));
        }
        if (size < 0) {
            throw Failure(fmt::format("cannot receive from port {}: {}", port_, std::strerror(errno)));
        }
        return View(buffer_).first(static_cast<size_t>(size));
    }

  private:
    uint16_t port_;
    int descriptor_;
    Octets buffer_ = Octets(max_message);
};

// An object whose instances are asked for.
struct Object {
    std::string oid; // without instance
    uint8_t type;    // what every value must have
};

struct Description {
    uint8_t pdu; // tag_get, tag_get_bulk or tag_set
    std::string community;
    std::vector<Object> objects; // of a GETBULK; others ask for the first
    uint32_t first;              // the first instance
    uint32_t count;              // instances, each one more than the one before
    uint32_t repetitions;        // of a GETBULK
    uint32_t outstanding;
};

class SnmpStream : public Stream {
  public:
    SnmpStream(uint16_t port, Description description)
        : channel_(port), what_(std::move(description)),
          community_(element(tag_octet_string, as_octets(what_.community))), slots_(what_.outstanding) {
        for (uint32_t slot = 0; slot < what_.outstanding; ++slot) {
            free_slots_.push_back(slot);
        }
        for (const Object &object : what_.objects) {
            columns_.push_back({oid_content(object.oid), object.type, {}});
            std::vector<Octets> &names = columns_.back().names;
            names.assign(what_.count, columns_.back().name);
            for (uint32_t i = 0; i < what_.count; ++i) {
                append_arc(names[i], what_.first + i);
            }
        }
    }

    uint64_t run(const Limit &limit) override {
        uint64_t started = 0;
        uint64_t items = 0;
        for (;;) {
            while (!free_slots_.empty() && !limit.reached(started)) {
                send_next();
                ++started;
            }
            if (free_slots_.size() == slots_.size()) {
                return items;
            }
            items += receive();
        }
    }

    uint64_t operations_per_pass() const override {
        const uint64_t each = what_.pdu == tag_get_bulk ? what_.repetitions : 1;
        return (what_.count + each - 1) / each;
    }

  private:
    // One request that is under way.
    struct Slot {
        uint32_t id = 0;
        uint32_t first = 0; // the first instance that is expected, counted from 0
        uint32_t count = 0; // how many are
    };

    struct Column {
        Octets name;
        uint8_t type;
        std::vector<Octets> names; // of the instances
    };

    static View as_octets(const std::string &text) {
        return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
    }

    static void append(Octets &to, View octets) { to.insert(to.end(), octets.begin(), octets.end()); }

    static void append_integer(Octets &to, uint32_t value) {
        if (value < 0x80) {
            to.insert(to.end(), {tag_integer, 1, static_cast<uint8_t>(value)});
            return;
        }
        to.insert(to.end(), {tag_integer, 4, static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                             static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
    }

    // The value of a SET differs from the one that the instance had: a switch need not write
    // down what it has already.
    Octets value_to_set(uint32_t instance) const {
        return element(tag_octet_string, as_octets(fmt::format("{:05}-{:04}", pass_ % 100000, what_.first + instance)));
    }

    // A GETBULK names the instance before the first that it wants.
    const Octets &name_to_send(const Column &column, uint32_t first) const {
        if (what_.pdu != tag_get_bulk) {
            return column.names[first];
        }
        return first > 0 ? column.names[first - 1] : column.name;
    }

    void send_next() {
        const uint32_t index = free_slots_.back();
        free_slots_.pop_back();
        Slot &slot = slots_[index];
        sequence_ = (sequence_ + 1) & 0x3fffff;
        slot.id = 0x40000000 | sequence_ << 8 | index;
        slot.first = next_;
        slot.count = what_.pdu == tag_get_bulk ? std::min(what_.repetitions, what_.count - next_) : 1;

        Octets varbinds;
        for (const Column &column : columns_) {
            Octets varbind = element(tag_oid, name_to_send(column, slot.first));
            append(varbind, what_.pdu == tag_set ? value_to_set(slot.first) : element(tag_null, {}));
            append(varbinds, element(tag_sequence, varbind));
        }

        Octets pdu;
        append_integer(pdu, slot.id);
        append_integer(pdu, 0); // error status, or no non-repeaters
        append_integer(pdu, what_.pdu == tag_get_bulk ? slot.count : 0);
        append(pdu, element(tag_sequence, varbinds));

        Octets message;
        append_integer(message, 1); // version 2c
        append(message, community_);
        append(message, element(what_.pdu, pdu));
        channel_.send(element(tag_sequence, message));

        next_ += slot.count;
        if (next_ == what_.count) {
            next_ = 0;
            ++pass_;
        }
    }

    [[noreturn]] void wrong(const char *why) const {
        throw Failure(fmt::format("a wrong answer to a request for {}: {}", what_.objects[0].oid, why));
    }

    // Takes one answer, checks all of it, and returns how many values it has.
    uint64_t receive() {
        Reader datagram(channel_.receive());
        const auto message = datagram.take(tag_sequence);
        if (!message || !datagram.at_end()) {
            wrong("not a message");
        }
        Reader parts(*message);
        const auto version = parts.take_integer();
        const auto community = parts.take(tag_octet_string);
        const auto pdu = parts.take(tag_response);
        if (version != 1 || !community || !pdu || !parts.at_end()) {
            wrong("not a response");
        }

        Reader fields(*pdu);
        const auto id = fields.take_integer();
        const auto status = fields.take_integer();
        const auto index = fields.take_integer();
        const auto varbinds = fields.take(tag_sequence);
        if (!id || !status || !index || !varbinds || !fields.at_end()) {
            wrong("not a PDU");
        }
        const uint32_t at = static_cast<uint32_t>(*id) & (max_outstanding - 1);
        if (at >= slots_.size() || slots_[at].id != *id) {
            wrong("its request id is not that of a request under way");
        }
        if (*status != 0) {
            wrong(fmt::format("error status {}", *status).c_str());
        }
        check_varbinds(*varbinds, slots_[at]);
        slots_[at].id = 0;
        free_slots_.push_back(at);
        return uint64_t{slots_[at].count} * columns_.size();
    }

    void check_varbind(Reader &list, const Octets &expected, uint8_t type) const {
        const auto varbind = list.take(tag_sequence);
        if (!varbind) {
            wrong("too few varbinds");
        }
        Reader parts(*varbind);
        const auto name = parts.take(tag_oid);
        if (!name || !std::ranges::equal(*name, expected)) {
            wrong("another name");
        }
        if (parts.next_tag() != type || !parts.take(type) || !parts.at_end()) {
            wrong("a value of another type");
        }
    }

    void check_varbinds(View varbinds, const Slot &slot) const {
        Reader list(varbinds);
        for (uint32_t i = 0; i < slot.count; ++i) {
            for (const Column &column : columns_) {
                check_varbind(list, column.names[slot.first + i], column.type);
            }
        }
        if (!list.at_end()) {
            wrong("too many varbinds");
        }
    }

    Channel channel_;
    Description what_;
    std::vector<Column> columns_;
    Octets community_;
    std::vector<Slot> slots_;
    std::vector<uint32_t> free_slots_;
    uint32_t sequence_ = 0;
    uint32_t next_ = 0; // the next instance to ask for, counted from 0
    // Which round this is through all of them; not the same in two runs of the program.
    uint64_t pass_ = static_cast<uint64_t>(Clock::now().time_since_epoch().count()) / 1000;
};

uint8_t pdu_of_kind(const std::string &kind) {
    if (kind == "get") {
        return tag_get;
    }
    if (kind == "getbulk") {
        return tag_get_bulk;
    }
    if (kind == "set") {
        return tag_set;
    }
    throw Failure(fmt::format("'{}' is no kind of stream", kind));
}

} // namespace

std::unique_ptr<Stream> make_snmp_stream(const nlohmann::json &description) {
    Description what;
    what.pdu = pdu_of_kind(description.at("kind"));
    what.community = description.value("community", "public");
    if (description.contains("columns")) {
        for (const nlohmann::json &column : description["columns"]) {
            what.objects.push_back({column.at("oid"), column.at("type")});
        }
    } else {
        what.objects.push_back({description.at("oid"), description.value("type", uint8_t{tag_octet_string})});
    }
    what.first = description.value("first", 0u);
    what.count = description.value("count", 1u);
    what.repetitions = description.value("repetitions", 50u);
    what.outstanding = description.value("outstanding", 1u);
    if (what.objects.empty() || (what.objects.size() > 1 && what.pdu != tag_get_bulk)) {
        throw Failure("only a getbulk is for several columns, and each is for at least one object");
    }
    if (what.count == 0 || what.repetitions == 0 || what.outstanding == 0 || what.outstanding > max_outstanding) {
        throw Failure("a count in a stream's description is out of range");
    }
    return std::make_unique<SnmpStream>(description.at("port").get<uint16_t>(), std::move(what));
}

} // namespace bench
