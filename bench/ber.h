// SPDX-License-Identifier: Apache-2.0
// The few pieces of BER that SNMP messages are made of, for clients that do not use the
// agent's own library. Lengths are definite; what is read may have them in any form.
#ifndef BER_H
#define BER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace ber {

using Octets = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

enum Tag : uint8_t {
    tag_integer = 0x02,
    tag_octet_string = 0x04,
    tag_null = 0x05,
    tag_oid = 0x06,
    tag_sequence = 0x30,
    tag_get = 0xa0,
    tag_get_next = 0xa1,
    tag_response = 0xa2,
    tag_set = 0xa3,
    tag_get_bulk = 0xa5
};

// An element of the given tag around `content`.
Octets element(uint8_t tag, View content);

// The content of an OBJECT IDENTIFIER from 1.3.6.1... in dotted form. Throws
// std::invalid_argument for text that is none.
Octets oid_content(std::string_view dotted);

// Appends one arc to the content of an OBJECT IDENTIFIER.
void append_arc(Octets &content, uint32_t arc);

// Reads one element after the other from octets that may be anything.
class Reader {
  public:
    explicit Reader(View octets) : rest_(octets) {}

    bool at_end() const { return rest_.empty(); }

    // The tag of the next element, 0 at the end.
    uint8_t next_tag() const { return rest_.empty() ? uint8_t{0} : rest_[0]; }

    // The content of the next element, which is passed. Nothing when it is another or
    // does not fit.
    std::optional<View> take(uint8_t tag);

    // The same for an INTEGER of at most eight octets.
    std::optional<int64_t> take_integer();

  private:
    View rest_;
};

} // namespace ber

#endif
