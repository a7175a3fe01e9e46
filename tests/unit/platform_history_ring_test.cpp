// The layout of the event history, its writer and its readers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>

#include "platform_scripted_manager.h"
#include "sdwrap/history_ring.h"

namespace {

history_record record_of(uint32_t number, const std::string &text) {
    history_record record = {.process_id = 42,
                             .nanoseconds = 999999999,
                             .seconds = 0x123456789a + number,
                             .module_id = 0x730000,
                             .event_class = number,
                             .text = {}};
    text.copy(record.text, HISTORY_MAX_TEXT);
    return record;
}

// Texts of different lengths, so that records end at every residue.
std::string text_of(uint32_t number) {
    return std::string(number % 97, static_cast<char>('a' + number % 26));
}

std::vector<history_record> records_of(const history_ring &ring) {
    std::vector<history_record> result;
    history_record record;
    for (uint32_t position = ring.begin; history_ring_next(ring, position, record);) {
        result.push_back(record);
    }
    return result;
}

// Where reading stops: at the end of the ring unless something in it is damaged.
uint32_t end_of(const history_ring &ring) {
    history_record record;
    uint32_t position = ring.begin;
    while (history_ring_next(ring, position, record)) {
    }
    return position;
}

class HistoryRing : public testing::Test {
  protected:
    HistoryRing() { history_ring_format(*ring); }

    std::unique_ptr<history_ring> ring = std::make_unique<history_ring>();
};

TEST_F(HistoryRing, ANewOneIsValidAndEmpty) {
    EXPECT_TRUE(history_ring_is_valid(*ring));
    EXPECT_TRUE(records_of(*ring).empty());
}

TEST_F(HistoryRing, RecordsComeBackInOrderWithAllFields) {
    history_ring_append(*ring, record_of(100, "first"));
    history_ring_append(*ring, record_of(101, ""));
    const auto records = records_of(*ring);
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(42u, records[0].process_id);
    EXPECT_EQ(999999999u, records[0].nanoseconds);
    EXPECT_EQ(0x123456789a + 100, records[0].seconds);
    EXPECT_EQ(0x730000u, records[0].module_id);
    EXPECT_EQ(100u, records[0].event_class);
    EXPECT_STREQ("first", records[0].text);
    EXPECT_EQ(101u, records[1].event_class);
    EXPECT_STREQ("", records[1].text);
}

TEST_F(HistoryRing, AFullOneDropsTheOldest) {
    for (uint32_t number = 0; number < 20000; ++number) {
        history_ring_append(*ring, record_of(number, text_of(number)));
        ASSERT_TRUE(history_ring_is_valid(*ring));
    }
    const auto records = records_of(*ring);
    // A record takes 80 bytes on average.
    EXPECT_GT(records.size(), HISTORY_RING_CAPACITY / 100);
    uint32_t number = 20000 - static_cast<uint32_t>(records.size());
    for (const history_record &record : records) {
        ASSERT_EQ(number, record.event_class);
        ASSERT_EQ(text_of(number), record.text);
        ++number;
    }
}

TEST_F(HistoryRing, PositionsWrapAround) {
    ring->begin = ring->end = UINT32_MAX - 199;
    for (uint32_t number = 0; number < 10; ++number) {
        history_ring_append(*ring, record_of(number, text_of(number + 50)));
    }
    EXPECT_LT(ring->end, ring->begin);
    const auto records = records_of(*ring);
    ASSERT_EQ(10u, records.size());
    EXPECT_EQ(text_of(59), records[9].text);
}

TEST_F(HistoryRing, TheLongestTextIsKeptWhole) {
    const std::string longest(HISTORY_MAX_TEXT, 'x');
    history_ring_append(*ring, record_of(1, longest));
    EXPECT_EQ(longest, records_of(*ring).at(0).text);
}

TEST_F(HistoryRing, ADamagedRecordEndsTheReadingAndIsOverwritten) {
    for (const uint32_t damage : {0u, 31u, 33u, UINT32_MAX}) {
        history_ring_format(*ring);
        history_ring_append(*ring, record_of(0, "good"));
        const uint32_t at = ring->end;
        for (uint32_t number = 1; number < 3000; ++number) {
            history_ring_append(*ring, record_of(number, "more text"));
        }
        memcpy(ring->records + at, &damage, sizeof damage);
        EXPECT_EQ(1u, records_of(*ring).size());
        for (uint32_t number = 0; number < 6000; ++number) {
            history_ring_append(*ring, record_of(number, "later"));
        }
        EXPECT_EQ(5999u, records_of(*ring).back().event_class);
    }
}

TEST_F(HistoryRing, AnImpossibleHeaderIsNotValid) {
    const auto broken = [this](uint32_t history_ring::*field, uint32_t value) {
        auto copy = std::make_unique<history_ring>(*ring);
        (*copy).*field = value;
        return !history_ring_is_valid(*copy);
    };
    EXPECT_TRUE(broken(&history_ring::magic, 0));
    EXPECT_TRUE(broken(&history_ring::version, 2));
    EXPECT_TRUE(broken(&history_ring::capacity, 1));
    EXPECT_TRUE(broken(&history_ring::end, HISTORY_RING_CAPACITY + 4));
    EXPECT_TRUE(broken(&history_ring::begin, 4));
    EXPECT_TRUE(broken(&history_ring::end, 2));
}

TEST_F(HistoryRing, WhatIsNoHistoryIsNotLoaded) {
    temporary_run_directory run;
    const std::string path = run.file("history.test");
    EXPECT_EQ(-1, history_ring_load(path.c_str(), *ring));
    EXPECT_EQ(ENOENT, errno);
    std::ofstream(path) << "short";
    EXPECT_EQ(-1, history_ring_load(path.c_str(), *ring));
    EXPECT_EQ(EINVAL, errno);
    std::ofstream(path) << std::string(sizeof(history_ring), 'x');
    EXPECT_EQ(-1, history_ring_load(path.c_str(), *ring));
    EXPECT_EQ(EINVAL, errno);
}

TEST_F(HistoryRing, AReaderSeesWholeRecordsWhileTheWriterGoesOn) {
    temporary_run_directory run;
    const std::string path = run.file("history.test");
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(0, ftruncate(fd, sizeof(history_ring)));
    void *mapped = mmap(nullptr, sizeof(history_ring), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(MAP_FAILED, mapped);
    history_ring &shared = *static_cast<history_ring *>(mapped);
    history_ring_format(shared);

    std::atomic<bool> is_over = false;
    std::thread writer([&] {
        for (uint32_t number = 0; !is_over; ++number) {
            history_ring_append(shared, record_of(number, text_of(number)));
        }
    });
    // The writer may outrun a reader for good; then there is nothing to look at.
    size_t seen = 0;
    for (int round = 0; (round < 200 || seen == 0) && round < 100000 && !HasFailure(); ++round) {
        if (history_ring_load(path.c_str(), *ring) != 0) {
            EXPECT_EQ(EINVAL, errno);
            continue;
        }
        const auto records = records_of(*ring);
        for (size_t i = 0; i < records.size() && !HasFailure(); ++i) {
            const uint32_t number = records[0].event_class + static_cast<uint32_t>(i);
            EXPECT_EQ(number, records[i].event_class);
            EXPECT_EQ(text_of(number), records[i].text);
        }
        EXPECT_EQ(ring->end, end_of(*ring));
        seen += records.size();
    }
    EXPECT_GT(seen, 0u);
    is_over = true;
    writer.join();
    munmap(mapped, sizeof(history_ring));
    close(fd);
}

} // namespace
