// SPDX-License-Identifier: Apache-2.0
// What the message service's client makes of memory, and of things in its place, that no
// sound manager shares.
#include <fstream>
#include <functional>

#include "platform_mts_memory_fixture.h"

namespace {

class HostileMemory : public MemoryFixture {
  protected:
    // The client lets such a connection go and is served over the next one.
    void expect_connection_dropped() {
        EXPECT_TRUE(connection->is_closed_by_client());
        auto script = play([&] { manager.accept().serve(); });
        EXPECT_EQ(0u, ask().status);
        script.get();
    }

    // The client finds nobody, and lets go what it has.
    uint32_t unserved() {
        std::filesystem::rename(manager.path(), manager.path() + ".away");
        const uint32_t status = ask().status;
        std::filesystem::rename(manager.path() + ".away", manager.path());
        return status;
    }

    static ptrdiff_t open_descriptors() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    }

    // How often this process, client and manager, has mapped such memory.
    static int mappings() {
        std::ifstream maps("/proc/self/maps");
        int count = 0;
        for (std::string line; std::getline(maps, line);) {
            count += line.find("scripted-memory") != std::string::npos;
        }
        return count;
    }
};

TEST_F(HostileMemory, WhatIsNoReplyInItEndsTheRequestAndTheConnection) {
    using Make = std::function<bytes(uint32_t)>;
    const std::pair<const char *, Make> cases[] = {
        {"nothing", [](uint32_t) { return bytes{}; }},
        {"a byte", [](uint32_t) { return bytes{'M'}; }},
        {"less than a header",
         [](uint32_t c) {
             const bytes whole = reply_bytes(c, 0);
             return bytes(whole.begin(), whole.begin() + 15);
         }},
        {"less than a frame",
         [](uint32_t c) {
             const bytes whole = reply_bytes(c, 0);
             return bytes(whole.begin(), whole.end() - 1);
         }},
        {"another magic",
         [](uint32_t c) {
             bytes frame = reply_bytes(c, 0);
             frame[3] = '2';
             return frame;
         }},
        {"the reply to the former request", [](uint32_t c) { return reply_bytes(c - 1, 0); }},
        {"the reply to the next request", [](uint32_t c) { return reply_bytes(c + 1, 0); }},
        {"a pong", [](uint32_t c) { return pong_bytes(c); }},
        {"a knock", [](uint32_t) { return knock_bytes(); }},
        {"the request", [](uint32_t c) { return frame_bytes(MTS_FRAME_REQUEST, c, bytes(28)); }},
        {"a reply without a status", [](uint32_t c) { return frame_bytes(MTS_FRAME_REPLY, c, words({0})); }},
        {"a reply that has half data",
         [](uint32_t c) {
             return frame_bytes(MTS_FRAME_REPLY, c, words({0, 2, 0}));
         }},
        {"a body beyond the bound",
         [](uint32_t c) {
             return words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, c, MTS_WIRE_MAX_BODY + 1, 0, 0});
         }},
        {"a body beyond the memory",
         [](uint32_t c) {
             return words({MTS_WIRE_MAGIC, MTS_FRAME_REPLY, c, MTS_SHARED_MAX_FRAME, 0, 0});
         }},
        {"a reply and a byte", [](uint32_t c) { return reply_bytes(c, 0) + bytes{0}; }},
        {"two replies", [](uint32_t c) { return reply_bytes(c, 0) + reply_bytes(c + 1, 0); }},
    };
    for (const auto &[name, make] : cases) {
        SCOPED_TRACE(name);
        memory = std::make_unique<manager_memory>();
        share();
        auto script = play([&, &make = make] { answer_with(make(take().correlation)); });
        const answer got = ask();
        script.get();
        EXPECT_EQ(UINT32_MAX, got.status);
        EXPECT_EQ(EPROTO, got.error);
        EXPECT_FALSE(got.data);
        expect_connection_dropped();
    }
}

TEST_F(HostileMemory, ALengthBeyondItIsNotBelieved) {
    for (const uint32_t length : {MTS_SHARED_MAX_FRAME + 1, 0x7fffffffu, UINT32_MAX}) {
        SCOPED_TRACE(length);
        memory = std::make_unique<manager_memory>();
        share();
        auto script = play([&] {
            const uint32_t correlation = take().correlation;
            memory->put(reply_bytes(correlation, 0));
            (*memory)->reply_length = length;
            if (memory->finish(MTS_SHARED_ANSWERED)) {
                connection->send(knock_bytes());
            }
        });
        EXPECT_EQ(EPROTO, ask().error);
        script.get();
        expect_connection_dropped();
    }
}

TEST_F(HostileMemory, LinesSaidToBeBlankAreZerosWhateverStandsThere) {
    constexpr size_t first_data = MTS_SHARED_LINE - MTS_WIRE_HEADER - MTS_WIRE_REPLY_FIXED;
    const auto ask_with = [&](const bytes &data, mts_shared_blanks blanks) {
        (*memory)->reply_blanks = blanks;
        auto script = play([&] { serve(data); });
        const answer got = ask();
        script.get();
        return got;
    };
    share();
    const bytes data(first_data + 2 * MTS_SHARED_LINE + 10, 0xee);
    bytes expected = data;
    std::fill_n(expected.begin() + first_data, 2 * MTS_SHARED_LINE, uint8_t{0});
    EXPECT_EQ(expected, ask_with(data, {{UINT32_MAX - 1, UINT32_MAX}}).data);
    EXPECT_EQ(bytes(4, 0xee), ask_with(bytes(4, 0xee), {{UINT32_MAX, UINT32_MAX}}).data) << "it has no whole line";

    const answer got = ask_with(data, {{UINT32_MAX, UINT32_MAX}});
    EXPECT_EQ(UINT32_MAX, got.status);
    EXPECT_EQ(EPROTO, got.error);
    expect_connection_dropped();
}

TEST_F(HostileMemory, AStateThatDoesNotExistIsNoAnswer) {
    for (const uint32_t state : {0u, 5u, UINT32_MAX}) {
        SCOPED_TRACE(state);
        memory = std::make_unique<manager_memory>();
        share();
        auto script = play([&] {
            const uint32_t correlation = take().correlation;
            memory->put(reply_bytes(correlation, 0));
            memory->finish(state);
            connection->send(knock_bytes());
            EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_PING), connection->receive_any().type);
            connection->close();
        });
        EXPECT_EQ(ETIMEDOUT, ask(1).error);
        script.get();
        EXPECT_EQ(state, memory->state());
    }
}

TEST_F(HostileMemory, AStateThatKeepsChangingEndsWithTheWait) {
    share();
    std::atomic<bool> is_over = false;
    auto script = play([&] {
        take();
        memory->put(words({1, 2, 3}));
        while (!is_over) {
            for (const uint32_t state : {MTS_SHARED_TAKEN, MTS_SHARED_ANSWERED, MTS_SHARED_POSTED}) {
                (*memory)->state = state;
                (*memory)->reply_length = state * 5000;
            }
        }
    });
    const answer got = ask(1);
    is_over = true;
    script.get();
    EXPECT_EQ(UINT32_MAX, got.status);
    EXPECT_LT(got.time, UNIT + SLACK);
}

TEST_F(HostileMemory, KnocksWithoutEndDoNotProlongTheWait) {
    share();
    std::atomic<bool> is_over = false;
    auto script = play([&] {
        await_knock();
        try {
            while (!is_over) {
                connection->send(knock_bytes());
            }
        } catch (const std::runtime_error &) { // the client may close the connection
        }
    });
    const answer got = ask(1);
    is_over = true;
    script.get();
    EXPECT_EQ(ETIMEDOUT, got.error);
    EXPECT_LT(got.time, UNIT + SLACK);
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
}

TEST_F(HostileMemory, FramesThatNobodyExpectsWhileItIsAskedEndTheRequest) {
    using Make = std::function<bytes(uint32_t)>;
    const std::pair<const char *, Make> cases[] = {
        {"the reply, not announced", [](uint32_t c) { return reply_bytes(c, 0); }},
        {"other memory", [](uint32_t c) { return frame_bytes(MTS_FRAME_SHARED, c - 1, {}); }},
        {"an event", [](uint32_t) { return frame_bytes(MTS_FRAME_EVENT, 0, words({145})); }},
        {"a knock with a body", [](uint32_t) { return frame_bytes(MTS_FRAME_KNOCK, 0, words({0})); }},
        {"rubbish", [](uint32_t) { return bytes(16, 'x'); }},
    };
    for (const auto &[name, make] : cases) {
        SCOPED_TRACE(name);
        memory = std::make_unique<manager_memory>();
        share();
        auto script = play([&, &make = make] { connection->send(make(take().correlation)); });
        EXPECT_EQ(EPROTO, ask().error);
        script.get();
        expect_connection_dropped();
    }
}

TEST_F(HostileMemory, DescriptorsOfAnythingElseAreClosedAndTheSocketServes) {
    ASSERT_EQ(UINT32_MAX, unserved());
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    const memory_descriptor unsealed(sizeof(mts_shared_memory), 0);
    const memory_descriptor growing_only(sizeof(mts_shared_memory), F_SEAL_GROW);
    const memory_descriptor small(sizeof(mts_shared_memory) - 1);
    const memory_descriptor large(sizeof(mts_shared_memory) + 1);
    const memory_descriptor empty(0);
    const memory_descriptor read_only(sizeof(mts_shared_memory), MEMORY_SEALS | F_SEAL_WRITE);
    const int file = open(run.file("file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(0, ftruncate(file, sizeof(mts_shared_memory)));
    const ptrdiff_t before = open_descriptors();
    for (const int fd : {unsealed.get(), growing_only.get(), small.get(), large.get(), empty.get(), read_only.get(),
                         ends[0], file, -1}) {
        SCOPED_TRACE(fd);
        auto script = play([&] {
            connection.emplace(manager.accept());
            const wire_frame share = connection->receive_any();
            const bytes shared = frame_bytes(MTS_FRAME_SHARED, share.correlation, {});
            fd == -1 ? connection->send(shared) : connection->send(shared, {fd});
            for (int i = 0; i < 2; ++i) {
                const wire_frame request = connection->receive_any();
                EXPECT_EQ(static_cast<uint32_t>(MTS_FRAME_REQUEST), request.type);
                connection->send(reply_bytes(request.correlation, 0));
            }
        });
        EXPECT_EQ(0u, ask().status);
        EXPECT_EQ(0u, ask().status);
        script.get();
        EXPECT_EQ(0u, mts_settings_generation());
        EXPECT_EQ(before + 2, open_descriptors()) << "the two ends of the connection";
        connection->close();
        connection.reset();
        ASSERT_EQ(UINT32_MAX, unserved());
        EXPECT_EQ(before, open_descriptors());
    }
    close(file);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(HostileMemory, MemoryOfAnotherVersionIsNotUsedAndTheSocketServes) {
    (*memory)->version = MTS_SHARED_VERSION + 1;
    const int mapped = mappings();
    share();
    auto script = play([&] { connection->serve(); });
    EXPECT_EQ(0u, ask().status);
    script.get();
    EXPECT_EQ(MTS_SHARED_IDLE, memory->state());
    EXPECT_EQ(0u, mts_settings_generation());
    EXPECT_EQ(mapped, mappings()) << "the manager's own";
    EXPECT_EQ(MTS_SHARED_VERSION, (*memory)->requester_version) << "so that the manager knows, too";
    EXPECT_NE(0, mts_memory_is_other_version());
}

TEST_F(HostileMemory, DescriptorsThatNobodyAskedForDoNotPileUp) {
    share();
    const ptrdiff_t before = open_descriptors();
    const manager_memory other;
    const int mapped = mappings();
    const bytes long_one(MTS_SHARED_MAX_FRAME);
    for (int i = 0; i < 100; ++i) {
        auto script = play([&] {
            const wire_frame request = connection->receive();
            for (uint32_t former = 1; former <= 3; ++former) {
                connection->send(frame_bytes(MTS_FRAME_SHARED, request.correlation - former, {}),
                                 {other.descriptor(), other.descriptor(), other.descriptor()});
            }
            connection->send(reply_bytes(request.correlation, 0), {other.descriptor()});
        });
        ASSERT_EQ(0u, ask(4, long_one).status);
        script.get();
    }
    EXPECT_LE(open_descriptors(), before + 2) << "of which one is this test's";
    EXPECT_EQ(mapped, mappings());
    connection->close();
    ASSERT_EQ(UINT32_MAX, unserved());
    EXPECT_EQ(mapped - 1, mappings());
}

} // namespace
