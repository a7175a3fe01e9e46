// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"

#include <cstdlib>

#include <dlfcn.h>

#include "module_loader.h"

namespace {

bool is_mapped(const char *path) {
    void *handle = dlopen(path, RTLD_NOLOAD | RTLD_NOW);
    if (handle) {
        dlclose(handle);
    }
    return handle != nullptr;
}

std::string count_of(const char *name) {
    const char *text = getenv(name);
    return text ? text : "0";
}

class ModuleLoaderTest : public OryxTest {
  protected:
    void SetUp() override {
        OryxTest::SetUp();
        unsetenv("ORYX_PROBE_LOADED");
        unsetenv("ORYX_PROBE_UNLOADED");
    }
    void TearDown() override {
        deinit_netsnmpagent_oryx();
        unsetenv("ORYX_MODULE");
    }
};

TEST_F(ModuleLoaderTest, TheModuleIsLoadedOnceHoweverOftenTheEntryIsCalled) {
    setenv("ORYX_MODULE", ORYX_PROBE_MODULE, 1);
    init_netsnmpagent_oryx();
    init_netsnmpagent_oryx();
    EXPECT_TRUE(is_mapped(ORYX_PROBE_MODULE));
    EXPECT_EQ(count_of("ORYX_PROBE_LOADED"), "1");
    EXPECT_EQ(count_of("ORYX_PROBE_UNLOADED"), "0");
}

TEST_F(ModuleLoaderTest, UnloadedTheModuleIsGone) {
    setenv("ORYX_MODULE", ORYX_PROBE_MODULE, 1);
    init_netsnmpagent_oryx();
    deinit_netsnmpagent_oryx();
    deinit_netsnmpagent_oryx();
    EXPECT_FALSE(is_mapped(ORYX_PROBE_MODULE));
    EXPECT_EQ(count_of("ORYX_PROBE_UNLOADED"), "1");
}

TEST_F(ModuleLoaderTest, TheModuleCanBeLoadedAgain) {
    setenv("ORYX_MODULE", ORYX_PROBE_MODULE, 1);
    init_netsnmpagent_oryx();
    deinit_netsnmpagent_oryx();
    init_netsnmpagent_oryx();
    EXPECT_TRUE(is_mapped(ORYX_PROBE_MODULE));
    EXPECT_EQ(count_of("ORYX_PROBE_LOADED"), "2");
}

TEST_F(ModuleLoaderTest, AModuleThatCannotBeOpenedCostsOneLine) {
    setenv("ORYX_MODULE", "/nonexistent/libmodule.so", 1);
    init_netsnmpagent_oryx();
    ASSERT_EQ(agent_log.size(), 1u);
    EXPECT_NE(agent_log[0].find("/nonexistent/libmodule.so"), std::string::npos);
    deinit_netsnmpagent_oryx();
    // The next attempt starts afresh.
    setenv("ORYX_MODULE", ORYX_PROBE_MODULE, 1);
    init_netsnmpagent_oryx();
    EXPECT_TRUE(is_mapped(ORYX_PROBE_MODULE));
}

TEST_F(ModuleLoaderTest, APathTooLongIsRefused) {
    setenv("ORYX_MODULE", ("/" + std::string(5000, 'a')).c_str(), 1);
    init_netsnmpagent_oryx();
    EXPECT_EQ(log_lines_with("too long"), 1u);
}

TEST_F(ModuleLoaderTest, TheModuleIsLookedForBesideTheLibrary) {
    setenv("ORYX_MODULE", "", 1);
    init_netsnmpagent_oryx();
    // This test program stands in for the library, and there is no module beside it.
    Dl_info self;
    ASSERT_NE(dladdr(reinterpret_cast<void *>(&init_netsnmpagent_oryx), &self), 0);
    const std::string program = self.dli_fname;
    EXPECT_EQ(log_lines_with(program.substr(0, program.rfind('/') + 1) + "libvsanmib.so"), 1u);
}

} // namespace
