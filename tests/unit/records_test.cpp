// SPDX-License-Identifier: Apache-2.0
// Wire records: sizes, offsets, byte order, keys and defaults.

#include "module_test.h"

#include <cstddef>
#include <cstring>

namespace {

// A record whose bytes are all different from their neighbours and their mirror image.
bytes pattern(size_t size) {
    bytes result(size);
    for (size_t i = 0; i < size; ++i) {
        result[i] = static_cast<uint8_t>(i * 7 + i / 256 + 1);
    }
    return result;
}

// `original` with the words at these offsets turned around.
bytes swapped(bytes original, std::initializer_list<size_t> offsets) {
    for (const size_t offset : offsets) {
        std::swap(original.at(offset), original.at(offset + 3));
        std::swap(original.at(offset + 1), original.at(offset + 2));
    }
    return original;
}

template <typename Record> bytes converted(void (*conversion)(Record *), const bytes &original) {
    Record record;
    memcpy(&record, original.data(), sizeof record);
    conversion(&record);
    bytes result(sizeof record);
    memcpy(result.data(), &record, sizeof record);
    return result;
}

TEST(Records, SizesAndOffsetsOfAVsan) {
    EXPECT_EQ(sizeof(vsanEntry), 2108u);
    EXPECT_EQ(offsetof(vsanEntry, vsanIndex), 0u);
    EXPECT_EQ(offsetof(vsanEntry, vsanMediaType), 4u);
    EXPECT_EQ(offsetof(vsanEntry, vsanAdminState), 8u);
    EXPECT_EQ(offsetof(vsanEntry, vsanMtu), 12u);
    EXPECT_EQ(offsetof(vsanEntry, vsanInorderDelivery), 16u);
    EXPECT_EQ(offsetof(vsanEntry, vsanInterOperMode), 20u);
    EXPECT_EQ(offsetof(vsanEntry, vsanLoadBalancingType), 24u);
    EXPECT_EQ(offsetof(vsanEntry, vsanRowStatus), 28u);
    EXPECT_EQ(offsetof(vsanEntry, vsanOperState), 32u);
    EXPECT_EQ(offsetof(vsanEntry, vsanName), 36u);
    EXPECT_EQ(sizeof(vsanEntry::vsanName), 36u);
    EXPECT_EQ(offsetof(vsanEntry, vsanNetworkDropLatency), 72u);
    EXPECT_EQ(offsetof(vsanEntry, rest), 76u);
    EXPECT_EQ(sizeof(vsanEntry::rest), 2032u);
}

TEST(Records, SizesAndOffsetsOfTheOthers) {
    EXPECT_EQ(sizeof(vsanEntry_block), 2632u);
    EXPECT_EQ(offsetof(vsanEntry_block, record), 520u);

    EXPECT_EQ(sizeof(vsanIfEntry), 16u);
    EXPECT_EQ(offsetof(vsanIfEntry, ifIndex), 0u);
    EXPECT_EQ(offsetof(vsanIfEntry, vsanIfVsan), 4u);
    EXPECT_EQ(offsetof(vsanIfEntry, vsanIfDenyList), 8u);
    EXPECT_EQ(offsetof(vsanIfEntry, vsanIfRowStatus), 12u);

    EXPECT_EQ(sizeof(fc_timer_record), 15u);
    EXPECT_EQ(offsetof(fc_timer_record, key), 0u);
    EXPECT_EQ(offsetof(fc_timer_record, value), 4u);
    EXPECT_EQ(offsetof(fc_timer_record, per_vsan), 8u);
    EXPECT_EQ(offsetof(fc_timer_record, flag), 9u);
    EXPECT_EQ(offsetof(fc_timer_record, vsan), 10u);
    EXPECT_EQ(offsetof(fc_timer_record, tail), 14u);

    EXPECT_EQ(sizeof(latency_record), 12u);
    EXPECT_EQ(offsetof(latency_record, key), 0u);
    EXPECT_EQ(offsetof(latency_record, value), 4u);
}

TEST(Records, ConvertingAVsanSwapsItsTenNumbersAndNothingElse) {
    const bytes original = pattern(sizeof(vsanEntry));
    const bytes wanted = swapped(original, {0, 4, 8, 12, 16, 20, 24, 28, 32, 72});
    EXPECT_EQ(converted(vsanEntry_hton, original), wanted);
    EXPECT_EQ(converted(vsanEntry_ntoh, original), wanted);
}

TEST(Records, ConvertingAVsanTwiceRestoresIt) {
    const bytes original = pattern(sizeof(vsanEntry));
    EXPECT_EQ(converted(vsanEntry_ntoh, converted(vsanEntry_hton, original)), original);
    EXPECT_EQ(converted(vsanEntry_hton, converted(vsanEntry_hton, original)), original);
}

TEST(Records, ConvertingAVsanNeverChangesItsName) {
    vsanEntry entry = {};
    strcpy(entry.vsanName, "storage_prod");
    vsanEntry_hton(&entry);
    EXPECT_STREQ(entry.vsanName, "storage_prod");
}

TEST(Records, NetworkOrderIsBigEndian) {
    vsanEntry entry = {};
    entry.vsanIndex = 0x01020304;
    vsanEntry_hton(&entry);
    bytes record(sizeof entry);
    memcpy(record.data(), &entry, sizeof entry);
    EXPECT_EQ(get_word(record, 0), 0x01020304u);
}

TEST(Records, ConvertingAMembershipKeepsItsRowStatusInHostOrder) {
    const bytes original = pattern(sizeof(vsanIfEntry));
    const bytes wanted = swapped(original, {0, 4, 8});
    EXPECT_EQ(converted(vsanIfEntry_hton, original), wanted);
    EXPECT_EQ(converted(vsanIfEntry_ntoh, original), wanted);
    EXPECT_EQ(converted(vsanIfEntry_ntoh, converted(vsanIfEntry_hton, original)), original);
}

TEST(Records, ConvertingATimerSwapsKeyValueAndTheUnalignedVsan) {
    const bytes original = pattern(sizeof(fc_timer_record));
    EXPECT_EQ(converted(vsanNewFcTimer_ntoh, original), swapped(original, {0, 4, 10}));
}

template <typename Record> Record with_key(int32_t key, uint8_t fill) {
    Record record;
    memset(&record, fill, sizeof record);
    memcpy(&record, &key, sizeof key);
    return record;
}

template <typename Record> void expect_reversed_order(int (*compare)(const void *, const void *)) {
    const auto low = with_key<Record>(1, 0x11);
    const auto low_again = with_key<Record>(1, 0xEE);
    const auto high = with_key<Record>(2, 0x11);
    const auto negative = with_key<Record>(-1, 0x11);
    const auto smallest = with_key<Record>(INT32_MIN, 0);
    const auto largest = with_key<Record>(INT32_MAX, 0);

    EXPECT_EQ(compare(&low, &low_again), 0) << "other fields do not count";
    EXPECT_EQ(compare(&low, &high), 1);
    EXPECT_EQ(compare(&high, &low), -1);
    EXPECT_EQ(compare(&negative, &low), 1) << "the key is signed";
    EXPECT_EQ(compare(&low, &negative), -1);
    EXPECT_EQ(compare(&smallest, &largest), 1) << "the difference does not fit";
    EXPECT_EQ(compare(&largest, &smallest), -1);
    EXPECT_EQ(compare(nullptr, &low), -1);
    EXPECT_EQ(compare(&low, nullptr), -1);
    EXPECT_EQ(compare(nullptr, nullptr), -1);
}

TEST(Records, VsansCompareByNumberInReverse) {
    expect_reversed_order<vsanEntry>(vsanEntry_comp);
}

TEST(Records, MembershipsCompareByInterfaceInReverse) {
    expect_reversed_order<vsanIfEntry>(vsanIfEntry_comp);
}

std::string default_name(int32_t index) {
    vsanEntry entry = {};
    entry.vsanIndex = index;
    vsanEntry_defaults(&entry);
    return entry.vsanName;
}

TEST(Records, DefaultNameOfAVsanHasAtLeastFourDigits) {
    EXPECT_EQ(default_name(5), "VSAN0005");
    EXPECT_EQ(default_name(10), "VSAN0010");
    EXPECT_EQ(default_name(4095), "VSAN4095");
    EXPECT_EQ(default_name(12345), "VSAN12345");
    EXPECT_EQ(default_name(-5), "VSAN-0005") << "digits, the sign not counted";
    EXPECT_EQ(default_name(INT32_MAX), "VSAN2147483647");
    EXPECT_EQ(default_name(INT32_MIN), "VSAN-2147483648");
}

TEST(Records, DefaultsOfAVsanLeaveStatesLatencyAndRestAlone) {
    vsanEntry entry;
    memset(&entry, 0x5A, sizeof entry);
    entry.vsanIndex = 77;
    vsanEntry_defaults(&entry);
    EXPECT_EQ(entry.vsanIndex, 77);
    EXPECT_STREQ(entry.vsanName, "VSAN0077");
    EXPECT_EQ(entry.vsanMediaType, 1);
    EXPECT_EQ(entry.vsanAdminState, 1);
    EXPECT_EQ(entry.vsanMtu, 2112);
    EXPECT_EQ(entry.vsanLoadBalancingType, 2);
    EXPECT_EQ(entry.vsanInterOperMode, 100);
    EXPECT_EQ(entry.vsanInorderDelivery, 0);

    EXPECT_EQ(entry.vsanRowStatus, 0x5A5A5A5A);
    EXPECT_EQ(entry.vsanOperState, 0x5A5A5A5A);
    EXPECT_EQ(entry.vsanNetworkDropLatency, 0x5A5A5A5Au);
    for (const uint8_t byte : entry.rest) {
        ASSERT_EQ(byte, 0x5A);
    }
}

TEST(Records, DefaultsOfAMembershipAreVsanOneAndNoDenyList) {
    vsanIfEntry entry = {1000, 7, 8, 9};
    vsanIfEntry_defaults(&entry);
    EXPECT_EQ(entry.ifIndex, 1000);
    EXPECT_EQ(entry.vsanIfVsan, 1);
    EXPECT_EQ(entry.vsanIfDenyList, 0);
    EXPECT_EQ(entry.vsanIfRowStatus, 9);
}

} // namespace
