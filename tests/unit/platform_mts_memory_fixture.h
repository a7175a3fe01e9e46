// SPDX-License-Identifier: Apache-2.0
// A client and a manager that has given it memory.
#ifndef PLATFORM_MTS_MEMORY_FIXTURE_H
#define PLATFORM_MTS_MEMORY_FIXTURE_H

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>

#include "mts/mts_settings.h"
#include "platform_mts_client.h"
#include "platform_scripted_memory.h"

class MemoryFixture : public testing::Test {
  protected:
    // The unit of the wait class, and what a busy machine may add to a wait.
    static constexpr std::chrono::milliseconds UNIT{250};
    static constexpr std::chrono::milliseconds SLACK{1000};

    // Runs the manager's side of a test beside it.
    template <class Script> std::future<void> play(Script script) {
        return std::async(std::launch::async, std::move(script));
    }

    // Has the client connect and gives it `memory`. Its first request goes over the socket.
    void share() {
        auto script = play([&] {
            connection.emplace(manager.accept());
            give_memory(*connection, *memory);
            connection->serve();
        });
        ASSERT_EQ(0u, ask().status);
        script.get();
    }

    // The next request in the memory, for which the client knocks.
    void await_knock() { EXPECT_EQ(knock_bytes(), raw(connection->receive_any())); }
    wire_frame take() {
        await_knock();
        return memory->take();
    }

    // Hands over the answer in the memory.
    void answer_with(const bytes &frame) {
        memory->put(frame);
        if (memory->finish(MTS_SHARED_ANSWERED)) {
            connection->send(knock_bytes());
        }
    }

    // Serves one request in the memory.
    void serve(const bytes &data = {}) { answer_with(reply_bytes(take().correlation, 0, data)); }

    // Whether requests go through the memory.
    void expect_memory_in_use() {
        auto script = play([&] { serve(words({77})); });
        EXPECT_EQ(words({77}), ask().data);
        script.get();
    }

    static bytes raw(const wire_frame &frame) { return frame_bytes(frame.type, frame.correlation, frame.body); }

    temporary_run_directory run;
    scripted_manager manager{run.path()};
    std::unique_ptr<manager_memory> memory = std::make_unique<manager_memory>();
    std::optional<manager_connection> connection;
};

#endif
