// SPDX-License-Identifier: Apache-2.0
// Frames going through shared memory whole, whatever was there before.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "mts/mts_shared.h"

namespace {

using bytes = std::vector<uint8_t>;

// What a frame looks like on the other side of memory full of older bytes.
bytes passed(const bytes &frame) {
    bytes memory(MTS_SHARED_MAX_FRAME, 0xee);
    const mts_shared_blanks blanks = mts_shared_write(memory.data(), frame.data(), frame.size());
    bytes result(frame.size(), 0xdd);
    mts_shared_read(result.data(), result.size(), memory.data(), blanks);
    return result;
}

TEST(MtsShared, AFrameArrivesWholeWhateverItsLength) {
    for (size_t length = 0; length <= MTS_SHARED_MAX_FRAME; ++length) {
        bytes frame(length);
        for (size_t i = 0; i < length; ++i) {
            frame[i] = static_cast<uint8_t>(i * 7 + 1);
        }
        ASSERT_EQ(frame, passed(frame)) << length;
    }
}

TEST(MtsShared, ZerosArriveAsZerosOverOlderBytes) {
    for (const size_t length : {1u, 63u, 64u, 65u, 2632u, 4031u, 4032u}) {
        ASSERT_EQ(bytes(length), passed(bytes(length))) << length;
    }
}

TEST(MtsShared, OneByteAmongZerosArrivesAtItsPlace) {
    for (size_t place = 0; place < MTS_SHARED_MAX_FRAME; ++place) {
        bytes frame(MTS_SHARED_MAX_FRAME);
        frame[place] = 0x80;
        ASSERT_EQ(frame, passed(frame)) << place;
    }
}

TEST(MtsShared, LinesOfZerosAreNotWritten) {
    bytes memory(MTS_SHARED_MAX_FRAME, 0xee);
    bytes frame(2672);
    frame[564] = 1;
    mts_shared_write(memory.data(), frame.data(), frame.size());
    const auto written = std::count_if(memory.begin(), memory.end(), [](uint8_t byte) { return byte != 0xee; });
    EXPECT_EQ(64 + 2672 % 64, written) << "one line, and the last, which is not full";
}

} // namespace
