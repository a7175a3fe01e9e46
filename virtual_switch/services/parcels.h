// SPDX-License-Identifier: Apache-2.0
// What is too long for one request or one reply, while it comes or goes in parts.
#ifndef VSWITCH_PARCELS_H
#define VSWITCH_PARCELS_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>

#include "model/bytes.h"

namespace vswitch {

// They are few: one more takes the place of the one that was left alone for longest, whose owner is told
// that it is gone and begins again.
class Parcels {
  public:
    static constexpr size_t max_parcels = 4;
    static constexpr size_t max_upload = 8u << 20;

    // An empty one that waits for its parts.
    uint32_t begin() { return keep({}); }

    // One that is complete. The content may be longer than an upload.
    uint32_t keep(std::string content);

    // Adds a part at `at`, where what has come so far ends. STATUS_SUCCESS, STATUS_NO_SUCH_PARCEL, or
    // STATUS_BAD_LENGTH for a part elsewhere or beyond max_upload.
    uint32_t add(uint32_t number, uint32_t at, Bytes part);

    // Appends what is at `at`, as much as `limit` allows. Whoever has taken the end needs the parcel no
    // more, and it is gone. STATUS_SUCCESS, STATUS_NO_SUCH_PARCEL, or STATUS_BAD_LENGTH for a place
    // behind the end.
    uint32_t read(uint32_t number, uint32_t at, size_t limit, Buffer &output);

    // Takes a parcel's content away. Nothing when it is gone.
    std::optional<std::string> take(uint32_t number);

  private:
    struct Parcel {
        uint32_t number;
        std::string content;
    };
    std::list<Parcel>::iterator find(uint32_t number);

    std::list<Parcel> parcels_; // the one that was used last comes first
};

} // namespace vswitch

#endif
