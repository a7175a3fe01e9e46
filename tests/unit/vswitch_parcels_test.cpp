// SPDX-License-Identifier: Apache-2.0
// What comes and goes in parts.
#include "services/parcels.h"
#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

class ParcelsTest : public testing::Test {
  protected:
    uint32_t add(uint32_t number, uint32_t at, const std::string &part) {
        return parcels_.add(number, at, text_bytes(part));
    }

    Parcels parcels_;
};

TEST_F(ParcelsTest, PartsFollowEachOther) {
    const uint32_t number = parcels_.begin();
    EXPECT_EQ(add(number, 0, "one "), STATUS_SUCCESS);
    EXPECT_EQ(add(number, 0, "one "), STATUS_BAD_LENGTH) << "a part that came already";
    EXPECT_EQ(add(number, 5, "two"), STATUS_BAD_LENGTH) << "a part behind one that is missing";
    EXPECT_EQ(add(number, 4, "two"), STATUS_SUCCESS);
    EXPECT_EQ(parcels_.take(number), "one two");
    EXPECT_EQ(parcels_.take(number), std::nullopt);
    EXPECT_EQ(add(number, 7, "three"), STATUS_NO_SUCH_PARCEL);
}

TEST_F(ParcelsTest, UploadIsBounded) {
    const uint32_t number = parcels_.begin();
    const std::string part(1u << 20, 'x');
    for (uint32_t at = 0; at < Parcels::max_upload; at += 1u << 20) {
        ASSERT_EQ(add(number, at, part), STATUS_SUCCESS);
    }
    EXPECT_EQ(add(number, Parcels::max_upload, ""), STATUS_SUCCESS);
    EXPECT_EQ(add(number, Parcels::max_upload, "x"), STATUS_BAD_LENGTH);
    EXPECT_EQ(parcels_.take(number)->size(), Parcels::max_upload);
}

TEST_F(ParcelsTest, DownloadIsGoneOnceItsEndWasFetched) {
    const uint32_t number = parcels_.keep("abcdefg");
    Buffer output;
    EXPECT_EQ(parcels_.read(number, 0, 3, output), STATUS_SUCCESS);
    EXPECT_EQ(parcels_.read(number, 0, 3, output), STATUS_SUCCESS) << "a part may be fetched again";
    EXPECT_EQ(parcels_.read(number, 8, 3, output), STATUS_BAD_LENGTH);
    EXPECT_EQ(parcels_.read(number, 3, 100, output), STATUS_SUCCESS);
    EXPECT_EQ(output, text_bytes("abcabcdefg"));
    EXPECT_EQ(parcels_.read(number, 0, 3, output), STATUS_NO_SUCH_PARCEL);
}

TEST_F(ParcelsTest, OneMoreTakesThePlaceOfTheOneLeftAloneForLongest) {
    std::vector<uint32_t> numbers;
    for (size_t count = 0; count < Parcels::max_parcels; ++count) {
        numbers.push_back(parcels_.begin());
    }
    EXPECT_EQ(add(numbers[0], 0, "used"), STATUS_SUCCESS);
    parcels_.begin();
    EXPECT_EQ(add(numbers[0], 4, "still"), STATUS_SUCCESS);
    EXPECT_EQ(add(numbers[1], 0, "x"), STATUS_NO_SUCH_PARCEL);
    EXPECT_EQ(add(numbers[2], 0, "x"), STATUS_SUCCESS);
}

} // namespace
