// SPDX-License-Identifier: Apache-2.0
// Exhausted memory in the platform libraries. The linker leads the calls of malloc
// in this program, which contains them, to the function below.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

#include "indxobj.h"
#include "platform_mts_client.h"
#include "platform_scripted_memory.h"

namespace {

bool is_exhausted = false;

int compare_ints(const void *a, const void *b) {
    return *static_cast<const int *>(a) - *static_cast<const int *>(b);
}

} // namespace

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size);

void *__wrap_malloc(size_t size) {
    return is_exhausted ? nullptr : __real_malloc(size);
}

namespace {

class ExhaustedMemory : public testing::Test {
  protected:
    ~ExhaustedMemory() override { is_exhausted = false; }
};

TEST_F(ExhaustedMemory, AListIsNotCreatedAndTakesNothing) {
    indxobj_list list = {};
    int one = 1;
    is_exhausted = true;
    EXPECT_NE(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 1));
    is_exhausted = false;
    EXPECT_EQ(INDXOBJ_CREATED, indxobj_create(&list, 0, 1, compare_ints, 1));
    is_exhausted = true;
    EXPECT_EQ(0, indxobj_add(&list, &one, &one));
    is_exhausted = false;
    EXPECT_EQ(nullptr, indxobj_find(&list, &one, 0));
    EXPECT_NE(0, indxobj_add(&list, &one, &one));
    indxobj_destroy(&list);
}

TEST_F(ExhaustedMemory, AReplyThatCannotBeKeptFailsItsRequestAndNotTheNext) {
    temporary_run_directory run;
    scripted_manager manager(run.path());
    auto script = std::async(std::launch::async, [&] {
        auto connection = manager.accept();
        for (int i = 0; i < 2; ++i) {
            connection.send(reply_bytes(connection.receive().correlation, 0, words({5})));
        }
    });
    is_exhausted = true;
    const answer failed = ask();
    is_exhausted = false;
    EXPECT_EQ(ENOMEM, failed.error);
    EXPECT_EQ(0u, failed.length);
    EXPECT_EQ(words({5}), ask().data);
    script.get();
}

TEST_F(ExhaustedMemory, AReplyThroughSharedMemoryThatCannotBeKeptFailsItsRequestAndNotTheNext) {
    temporary_run_directory run;
    scripted_manager manager(run.path());
    const manager_memory memory;
    memory->switch_sleeps = 0;
    auto script = std::async(std::launch::async, [&] {
        auto connection = manager.accept();
        give_memory(connection, memory);
        connection.serve();
        for (int i = 0; i < 2; ++i) {
            memory.await_post();
            memory.put(reply_bytes(memory.take().correlation, 0, words({5})));
            if (memory.finish(MTS_SHARED_ANSWERED)) {
                connection.send(knock_bytes());
            }
        }
    });
    EXPECT_EQ(0u, ask().status);
    is_exhausted = true;
    const answer failed = ask();
    is_exhausted = false;
    EXPECT_EQ(ENOMEM, failed.error);
    EXPECT_EQ(0u, failed.length);
    EXPECT_EQ(words({5}), ask().data);
    script.get();
}

} // namespace
