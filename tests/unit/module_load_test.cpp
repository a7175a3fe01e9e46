// SPDX-License-Identifier: Apache-2.0
// The shared object as a program loads it, against the reference platform: what its
// constructor and destructor do.

#include <dlfcn.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(ModuleLoad, StartsWhenLoadedAndStopsWhenUnloaded) {
    testing::internal::CaptureStdout();
    void *module = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    fflush(stdout);
    const std::string loaded = testing::internal::GetCapturedStdout();
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_EQ(loaded, "DEBUG : In _init \nDEBUG : ENTER init_vsan_mib \nDEBUG : EXIT init_vsan_mib \n");

    EXPECT_NE(dlsym(module, "init_vsan_mib"), nullptr);
    EXPECT_NE(dlsym(module, "deinit_vsan_mib"), nullptr);

    testing::internal::CaptureStdout();
    ASSERT_EQ(dlclose(module), 0) << dlerror();
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "DEBUG : In _fini \nDEBUG : ENTER deinit_vsan_mib \nDEBUG : EXIT deinit_vsan_mib \n");
    EXPECT_EQ(dlopen(MODULE_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "nothing keeps it in memory";
}

TEST(ModuleLoad, LoadsAgainAndAgain) {
    testing::internal::CaptureStdout();
    for (int i = 0; i < 3; ++i) {
        void *module = dlopen(MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << dlerror();
        ASSERT_EQ(dlclose(module), 0);
    }
    fflush(stdout);
    const std::string printed = testing::internal::GetCapturedStdout();
    size_t starts = 0;
    for (size_t at = printed.find("EXIT init_vsan_mib"); at != std::string::npos;
         at = printed.find("EXIT init_vsan_mib", at + 1)) {
        ++starts;
    }
    EXPECT_EQ(starts, 3u) << printed;
}

} // namespace
