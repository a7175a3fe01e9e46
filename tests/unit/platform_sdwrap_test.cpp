// SPDX-License-Identifier: Apache-2.0
// Event history and debug output as a process uses them.
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
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
#include "sdwrap/history_line.h"

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

    std::string old_history_path() const { return history_path() + HISTORY_OLD_SUFFIX; }

    // The lines of a file, each of which must have its end.
    static std::vector<std::string> lines_of(const std::string &path) {
        std::vector<std::string> result;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            EXPECT_FALSE(file.eof()) << line;
            result.push_back(line);
        }
        return result;
    }

    // The texts in the history file, or another; nothing when there is none.
    std::vector<std::string> history() const { return history(history_path()); }
    static std::vector<std::string> history(const std::string &path) {
        std::vector<std::string> result;
        for (const std::string &line : lines_of(path)) {
            history_line record;
            if (history_line_read(line, record)) {
                result.emplace_back(record.text);
            }
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

TEST_F(Sdwrap, RecordsGoIntoTwoOwnerOnlyFilesOfBoundedSize) {
    std::vector<std::string> expected;
    for (int i = 0; i < 10000; ++i) {
        expected.push_back("record number " + std::to_string(i));
        record(100, expected.back());
    }
    for (const std::string &path : {history_path(), old_history_path()}) {
        struct stat status;
        ASSERT_EQ(0, stat(path.c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 07777);
        EXPECT_LE(static_cast<size_t>(status.st_size), HISTORY_FILE_MAX);
    }
    std::vector<std::string> kept = history(old_history_path());
    EXPECT_GT(kept.size(), 1000u);
    const auto latest = history();
    kept.insert(kept.end(), latest.begin(), latest.end());
    EXPECT_TRUE(std::equal(kept.rbegin(), kept.rend(), expected.rbegin())) << "the latest, and none of them is missing";
}

TEST_F(Sdwrap, WhoMayEnterTheRunDirectoryByItsGroupMayReadTheHistory) {
    ASSERT_EQ(0, chmod(run.path().c_str(), 0750));
    record(100, "one");
    struct stat status;
    ASSERT_EQ(0, stat(history_path().c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_F(Sdwrap, ARecordHasTimeProcessModuleClassAndText) {
    const auto before = time(nullptr);
    record(100, "refused");
    ASSERT_EQ(1u, lines_of(history_path()).size());
    const std::string line = lines_of(history_path()).front();
    history_line got;
    ASSERT_TRUE(history_line_read(line, got)) << line;
    struct tm utc = {};
    ASSERT_NE(nullptr, strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc));
    EXPECT_GE(timegm(&utc), before);
    EXPECT_LE(timegm(&utc), time(nullptr));
    EXPECT_EQ(static_cast<uint32_t>(getpid()), got.process_id);
    EXPECT_EQ(MODULE, got.module_id);
    EXPECT_EQ(100u, got.event_class);
    EXPECT_EQ("refused", got.text);
}

TEST_F(Sdwrap, ATextIsOneLineThatEndsCleanly) {
    record(100, "two\nlines, and an end \t\n\n");
    record(100, "\n");
    EXPECT_EQ((std::vector<std::string>{"two lines, and an end", ""}), history());
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
    for (const pid_t child : children) {
        waitpid(child, nullptr, 0);
    }
    for (const std::string &path : {history_path(), old_history_path()}) {
        EXPECT_EQ(lines_of(path).size(), history(path).size());
        for (const std::string &text : history(path)) {
            EXPECT_EQ(std::string::npos, text.find_first_not_of(text.substr(0, 1))) << text;
        }
        EXPECT_LE(std::filesystem::file_size(path), HISTORY_FILE_MAX + 4 * HISTORY_MAX_LINE);
    }
}

// What a full disk is to a file: not a byte beyond some size, and no signal.
TEST_F(Sdwrap, AFullDiskLeavesWholeLinesAndTheRestFollowsWhenThereIsRoom) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        record(100, "first");
        const rlimit full = {static_cast<rlim_t>(std::filesystem::file_size(history_path()) + 20), RLIM_INFINITY};
        const rlimit empty = {RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &full);
        record(100, "second");
        record(100, "third");
        const bool is_whole = history() == std::vector<std::string>{"first"} && lines_of(history_path()).size() == 1;
        setrlimit(RLIMIT_FSIZE, &empty);
        const bool is_complete = becomes_true([&] {
            record(100, "later");
            const auto texts = history();
            return texts.size() > 3 && texts[1] == "second" && texts[2] == "third";
        });
        _exit(is_whole && is_complete ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

TEST_F(Sdwrap, WhatTheFileDoesNotTakeIsKeptToABound) {
    setenv(RUN_DIRECTORY_VARIABLE, run.file("later").c_str(), 1);
    for (int i = 0; i < 5000; ++i) {
        record(100, std::to_string(i));
    }
    std::filesystem::create_directory(run.file("later"));
    const std::string path = run.file("later/history.platform_sdwrap_test");
    EXPECT_TRUE(becomes_true([&] {
        record(100, "5000");
        return std::filesystem::exists(path);
    }));
    const auto texts = history(path);
    ASSERT_GT(texts.size(), 100u);
    EXPECT_LT(texts.size(), 2000u);
    EXPECT_NE(texts.end(), std::find(texts.begin(), texts.end(), "4999")) << "the latest are kept";
    setenv(RUN_DIRECTORY_VARIABLE, run.path().c_str(), 1);
}

TEST_F(Sdwrap, RecordsMadeBeforeTheFileCanBeHadGoIntoItLater) {
    const std::string later = run.file("later");
    setenv(RUN_DIRECTORY_VARIABLE, later.c_str(), 1);
    record(100, "early");
    std::filesystem::create_directory(later);
    const std::string path = later + "/history.platform_sdwrap_test";
    EXPECT_TRUE(becomes_true([&] {
        record(100, "again");
        return std::filesystem::exists(path);
    }));
    ASSERT_FALSE(history(path).empty());
    EXPECT_EQ("early", history(path).front());
    setenv(RUN_DIRECTORY_VARIABLE, run.path().c_str(), 1);
}

TEST_F(Sdwrap, ARemovedFileIsMadeAnew) {
    record(100, "one");
    std::filesystem::remove(history_path());
    record(100, "two");
    EXPECT_EQ(std::vector<std::string>{"two"}, history());
}

TEST_F(Sdwrap, AShortenedFileIsGoneOnWith) {
    record(100, "one");
    ASSERT_EQ(0, truncate(history_path().c_str(), 0));
    record(100, "two");
    EXPECT_EQ(std::vector<std::string>{"two"}, history());
}

TEST_F(Sdwrap, AFileThatIsTooLargeIsPutAway) {
    std::ofstream(history_path()) << std::string(HISTORY_FILE_MAX, 'x') << "\n";
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
    setenv(RUN_DIRECTORY_VARIABLE, run.file("missing").c_str(), 1);
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
