// Event history and debug output as a process uses them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>

#include "platform_scripted_manager.h"
#include "sdwrap.h"
#include "sdwrap/history_ring.h"

using namespace std::chrono_literals;

namespace {

constexpr uint32_t MODULE = 0x730000;

class Sdwrap : public testing::Test {
  protected:
    Sdwrap() { unsetenv("SDWRAP_DEBUG_LOG"); }

    void record(uint32_t event_class, const std::string &text) const {
        std::string block(sizeof event_class, '\0');
        memcpy(block.data(), &event_class, sizeof event_class);
        block += text;
        sdwrap_hist_event(MODULE, static_cast<uint32_t>(block.size() + 1), block.c_str());
    }

    std::string history_path() const { return run.file("history.platform_sdwrap_test"); }

    // The texts in the history file; nothing when there is none.
    std::vector<std::string> history() const {
        std::vector<std::string> result;
        auto ring = std::make_unique<history_ring>();
        if (history_ring_load(history_path().c_str(), *ring) != 0) {
            return result;
        }
        history_record one;
        for (uint32_t position = ring->begin; history_ring_next(*ring, position, one);) {
            result.push_back(one.text);
        }
        return result;
    }

    // The filters' file is looked at now and then only. Replaces it in one step.
    void set_filters(const std::string &text) const {
        std::ofstream(run.file("new.conf")) << text;
        std::filesystem::rename(run.file("new.conf"), run.file("debug.conf"));
    }

    static bool becomes_true(const std::function<bool()> &condition) {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(10ms);
        }
        return true;
    }

    static bool history_wanted(uint32_t event_class) {
        return sdwrap_hist_event_subtype_check(MODULE, event_class) == 0;
    }
    static bool debug_wanted(uint32_t event_class) { return sdwrap_chk_int(event_class, 0, 0, 1) != 0; }

    std::string file_text(const std::string &name) const {
        std::ostringstream text;
        text << std::ifstream(run.file(name)).rdbuf();
        return text.str();
    }

    temporary_run_directory run;
};

TEST_F(Sdwrap, TheProcessHasItsProgramsName) {
    EXPECT_STREQ("platform_sdwrap_test", sdwrap_dbg_modname);
}

TEST_F(Sdwrap, RecordsGoIntoAnOwnerOnlyFileOfFixedSize) {
    record(100, "one");
    struct stat status;
    ASSERT_EQ(0, stat(history_path().c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
    EXPECT_EQ(sizeof(history_ring), static_cast<size_t>(status.st_size));
    EXPECT_GE(static_cast<size_t>(status.st_blocks) * 512, sizeof(history_ring)) << "its space is reserved";
    for (int i = 0; i < 10000; ++i) {
        record(101, "more");
    }
    ASSERT_EQ(0, stat(history_path().c_str(), &status));
    EXPECT_EQ(sizeof(history_ring), static_cast<size_t>(status.st_size));
}

TEST_F(Sdwrap, ARecordHasTimeProcessModuleClassAndText) {
    const auto before = time(nullptr);
    record(100, "refused");
    auto ring = std::make_unique<history_ring>();
    ASSERT_EQ(0, history_ring_load(history_path().c_str(), *ring));
    history_record got;
    uint32_t position = ring->begin;
    ASSERT_TRUE(history_ring_next(*ring, position, got));
    EXPECT_GE(got.seconds, before);
    EXPECT_LE(got.seconds, time(nullptr));
    EXPECT_EQ(static_cast<uint32_t>(getpid()), got.process_id);
    EXPECT_EQ(MODULE, got.module_id);
    EXPECT_EQ(100u, got.event_class);
    EXPECT_STREQ("refused", got.text);
}

TEST_F(Sdwrap, ATextIsBoundedByTheLengthOfItsRecord) {
    const char block[] = {1, 0, 0, 0, 'a', 'b', 'c'};
    sdwrap_hist_event(MODULE, 6, block);
    sdwrap_hist_event(MODULE, 4, block);
    record(100, std::string(5000, 'x'));
    EXPECT_EQ((std::vector<std::string>{"ab", "", std::string(HISTORY_MAX_TEXT, 'x')}), history());
}

TEST_F(Sdwrap, WhatIsNoRecordIsNotStored) {
    record(100, "one");
    sdwrap_hist_event(MODULE, 9, nullptr);
    sdwrap_hist_event(MODULE, 3, "abc");
    sdwrap_hist_event(MODULE, 0, "abc");
    EXPECT_EQ(1u, history().size());
}

TEST_F(Sdwrap, TheHistoryIsContinuedByTheNextProcess) {
    record(100, "parent");
    const pid_t child = fork();
    if (child == 0) {
        record(100, "child");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    record(100, "parent again");
    EXPECT_EQ((std::vector<std::string>{"parent", "child", "parent again"}), history());
}

TEST_F(Sdwrap, ProcessesOfOneNameDoNotDamageEachOthersRecords) {
    record(100, "s");
    std::vector<pid_t> children;
    for (char letter = 'a'; letter < 'e'; ++letter) {
        children.push_back(fork());
        if (children.back() == 0) {
            for (size_t i = 0; i < 20000; ++i) {
                record(100, std::string(i % 60, letter));
            }
            _exit(0);
        }
    }
    auto ring = std::make_unique<history_ring>();
    while (!children.empty()) {
        // A reader that is outrun has nothing to look at.
        if (history_ring_load(history_path().c_str(), *ring) == 0) {
            history_record one;
            uint32_t position = ring->begin;
            while (history_ring_next(*ring, position, one)) {
                const std::string text = one.text;
                ASSERT_EQ(std::string::npos, text.find_first_not_of(text.substr(0, 1))) << text;
            }
            ASSERT_EQ(ring->end, position) << "what follows is damaged";
        }
        if (waitpid(children.back(), nullptr, WNOHANG) != 0) {
            children.pop_back();
        }
    }
}

TEST_F(Sdwrap, NothingIsWrittenWhileAnotherProcessHoldsTheFile) {
    record(100, "one");
    int held[2];
    int over[2];
    ASSERT_EQ(0, pipe(held));
    ASSERT_EQ(0, pipe(over));
    char byte = 0;
    const pid_t child = fork();
    if (child == 0) {
        const int fd = open(history_path().c_str(), O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        const bool is_held = fcntl(fd, F_SETLK, &lock) == 0 && write(held[1], &byte, 1) == 1;
        close(over[1]);
        _exit(is_held && read(over[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(held[1]);
    ASSERT_EQ(1, read(held[0], &byte, 1));
    record(100, "two");
    EXPECT_EQ(std::vector<std::string>{"one"}, history());
    close(over[0]);
    close(over[1]);
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    close(held[0]);
    record(100, "three");
    EXPECT_EQ((std::vector<std::string>{"one", "three"}), history());
}

TEST_F(Sdwrap, RecordsMadeBeforeTheFileCanBeHadGoIntoItLater) {
    const std::string later = run.file("later");
    setenv(MTS_RUN_DIR_VARIABLE, later.c_str(), 1);
    record(100, "early");
    std::filesystem::create_directory(later);
    const std::string path = later + "/history.platform_sdwrap_test";
    EXPECT_TRUE(becomes_true([&] {
        record(100, "again");
        return std::filesystem::exists(path);
    }));
    auto ring = std::make_unique<history_ring>();
    ASSERT_EQ(0, history_ring_load(path.c_str(), *ring));
    history_record first;
    uint32_t position = ring->begin;
    ASSERT_TRUE(history_ring_next(*ring, position, first));
    EXPECT_STREQ("early", first.text);
    setenv(MTS_RUN_DIR_VARIABLE, run.path().c_str(), 1);
}

TEST_F(Sdwrap, ARemovedFileIsMadeAnew) {
    record(100, "one");
    std::filesystem::remove(history_path());
    record(100, "two");
    EXPECT_EQ(std::vector<std::string>{"two"}, history());
}

TEST_F(Sdwrap, AShortenedFileIsMadeWholeAgain) {
    record(100, "one");
    ASSERT_EQ(0, truncate(history_path().c_str(), 0));
    record(100, "two");
    EXPECT_EQ(std::vector<std::string>{"two"}, history());
}

TEST_F(Sdwrap, ADamagedHistoryIsStartedAnew) {
    std::ofstream(history_path()) << std::string(sizeof(history_ring) + 1000, 'x');
    record(100, "one");
    EXPECT_EQ(std::vector<std::string>{"one"}, history());
}

TEST_F(Sdwrap, ALinkInTheFilesPlaceIsNotFollowed) {
    std::ofstream(run.file("precious")) << "precious";
    std::filesystem::create_symlink("precious", history_path());
    record(100, "one");
    EXPECT_EQ("precious", file_text("precious"));
}

TEST_F(Sdwrap, AFileThatHasAnotherNameIsLeftAlone) {
    std::ofstream(run.file("precious")) << "precious";
    std::filesystem::create_hard_link(run.file("precious"), history_path());
    record(100, "one");
    EXPECT_EQ("precious", file_text("precious"));
}

TEST_F(Sdwrap, TheProgramsNameCannotLeaveTheRunDirectory) {
    const char *former = sdwrap_dbg_modname;
    sdwrap_dbg_modname = "../../etc/x y";
    record(100, "one");
    sdwrap_dbg_modname = former;
    EXPECT_TRUE(std::filesystem::exists(run.file("history._______etc_x_y")) ||
                std::filesystem::exists(run.file("history.______etc_x_y")));
}

TEST_F(Sdwrap, FiltersFollowTheirFile) {
    EXPECT_TRUE(history_wanted(100));
    EXPECT_FALSE(history_wanted(101));
    EXPECT_FALSE(debug_wanted(100));
    set_filters("debug 101 on\nhistory 100 off\n");
    EXPECT_TRUE(becomes_true([] { return debug_wanted(101) && !history_wanted(100); }));
    set_filters("debug 101 off\nhistory 101 on\n");
    EXPECT_TRUE(becomes_true([] { return !debug_wanted(101) && history_wanted(100) && history_wanted(101); }));
    std::filesystem::remove(run.file("debug.conf"));
    EXPECT_TRUE(becomes_true([] { return !history_wanted(101); }));
}

TEST_F(Sdwrap, AChangeThatLeavesTheFilesSizeAndTimeIsNoticed) {
    set_filters("debug 100 on ");
    EXPECT_TRUE(becomes_true([] { return debug_wanted(100); }));
    // In place and within one tick of the clock that stamps files.
    struct stat status;
    ASSERT_EQ(0, stat(run.file("debug.conf").c_str(), &status));
    std::fstream(run.file("debug.conf")) << "debug 101 on ";
    const timespec times[] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(0, utimensat(AT_FDCWD, run.file("debug.conf").c_str(), times, 0));
    EXPECT_TRUE(becomes_true([] { return !debug_wanted(100) && debug_wanted(101); }));
}

TEST_F(Sdwrap, AFilterFileThatCannotBeReadChangesNothingAndIsReported) {
    setenv("SDWRAP_DEBUG_LOG", run.file("log").c_str(), 1);
    set_filters("debug 101 on\n");
    EXPECT_TRUE(becomes_true([] { return debug_wanted(101); }));
    std::filesystem::remove(run.file("debug.conf"));
    std::filesystem::create_directory(run.file("debug.conf"));
    EXPECT_TRUE(becomes_true([this] {
        debug_wanted(101);
        return file_text("log").find("cannot be read") != std::string::npos;
    }));
    EXPECT_TRUE(debug_wanted(101));
    std::filesystem::remove(run.file("debug.conf"));
    set_filters(std::string(10000, '#'));
    EXPECT_TRUE(becomes_true([this] {
        debug_wanted(101);
        return file_text("log").find("longer than") != std::string::npos;
    }));
}

TEST_F(Sdwrap, BadFilterLinesAreReportedWithTheirNumber) {
    setenv("SDWRAP_DEBUG_LOG", run.file("log").c_str(), 1);
    set_filters("debug 101 on\nnonsense\n");
    EXPECT_TRUE(becomes_true([] { return debug_wanted(101); }));
    EXPECT_NE(std::string::npos, file_text("log").find("debug.conf: 1 of its lines skipped, the first is line 2"));
}

TEST_F(Sdwrap, DebugOutputIsOneLineWithTimeAndName) {
    setenv("SDWRAP_DEBUG_LOG", run.file("log").c_str(), 1);
    buginf("agent", "%s(%d) \n", "value", 7);
    buginf("agent", "two\nlines\x1b\n\n");
    buginf(nullptr, "nameless");
    std::istringstream log(file_text("log"));
    std::string line;
    for (const char *text : {"agent: value(7)", "agent: two lines ", "-: nameless"}) {
        ASSERT_TRUE(std::getline(log, line));
        const size_t time_length = std::string("dddd-dd-ddTdd:dd:dd.ddddddZ ").size();
        std::string time_form = line.substr(0, time_length);
        std::replace_if(
            time_form.begin(), time_form.end(), [](char c) { return c >= '0' && c <= '9'; }, 'd');
        EXPECT_EQ("dddd-dd-ddTdd:dd:dd.ddddddZ ", time_form);
        EXPECT_EQ(text, line.substr(time_form.size()));
    }
    EXPECT_FALSE(std::getline(log, line));
    struct stat status;
    ASSERT_EQ(0, stat(run.file("log").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
}

TEST_F(Sdwrap, ALongTextIsCut) {
    setenv("SDWRAP_DEBUG_LOG", run.file("log").c_str(), 1);
    buginf(std::string(1000, 'n').c_str(), "%s", std::string(100000, 'x').c_str());
    const std::string log = file_text("log");
    EXPECT_LT(log.size(), 4096u) << "so that a pipe takes it whole";
    EXPECT_EQ(log.size() - 1, log.find('\n'));
    EXPECT_NE(std::string::npos, log.find("xxxx"));
}

TEST_F(Sdwrap, WithoutAFileDebugOutputGoesToStandardError) {
    testing::internal::CaptureStderr();
    buginf("agent", "hello");
    setenv("SDWRAP_DEBUG_LOG", run.file("missing/log").c_str(), 1);
    buginf("agent", "cannot open");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find("agent: hello\n"));
    EXPECT_NE(std::string::npos, text.find("agent: cannot open\n"));
}

// Runs `body` in a child whose standard error is the writing end of a pipe. Returns
// the child's status as waitpid does; a child that hangs is killed by its alarm.
int with_pipe_as_stderr(bool close_reader, const std::function<void()> &body) {
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        if (close_reader) {
            close(ends[0]);
        }
        body();
        _exit(0);
    }
    close(ends[1]);
    if (close_reader) {
        close(ends[0]);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (!close_reader) {
        close(ends[0]);
    }
    return status;
}

TEST_F(Sdwrap, AFullPipeDoesNotBlockDebugOutput) {
    EXPECT_EQ(0, with_pipe_as_stderr(false, [] {
                  for (int i = 0; i < 2000; ++i) {
                      buginf("agent", "%0500d", i);
                  }
              }));
}

TEST_F(Sdwrap, ABrokenPipeDoesNotEndTheProcess) {
    EXPECT_EQ(0, with_pipe_as_stderr(true, [] { buginf("agent", "nobody reads"); }));
}

TEST_F(Sdwrap, AClosedStandardErrorIsTolerated) {
    EXPECT_EQ(0, with_pipe_as_stderr(false, [] {
                  close(STDERR_FILENO);
                  buginf("agent", "nobody reads");
              }));
}

TEST_F(Sdwrap, TheCallersErrnoIsKept) {
    setenv("SDWRAP_DEBUG_LOG", run.file("missing/log").c_str(), 1);
    setenv(MTS_RUN_DIR_VARIABLE, run.file("missing").c_str(), 1);
    testing::internal::CaptureStderr();
    errno = ETIMEDOUT;
    record(100, "one");
    EXPECT_EQ(ETIMEDOUT, errno);
    buginf("agent", "hello");
    EXPECT_EQ(ETIMEDOUT, errno);
    for (int i = 0; i < 2; ++i) {
        debug_wanted(100);
        history_wanted(100);
        EXPECT_EQ(ETIMEDOUT, errno);
        std::this_thread::sleep_for(300ms); // the next look at the filters' file
        errno = ETIMEDOUT;
    }
    testing::internal::GetCapturedStderr();
}

} // namespace
