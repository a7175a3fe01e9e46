// SPDX-License-Identifier: Apache-2.0
// The database: nothing is lost, nothing is touched that is not understood.
#include <SQLiteCpp/SQLiteCpp.h>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

#include "model/store.h"
#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

SwitchData sample() {
    SwitchData data = parse_configuration(R"({
        "vsans": [{"id": 10, "name": "prod", "state": "suspended", "mtu": 2048, "timers": {"ratov": 20000}}],
        "ports": [{"ifIndex": 4294967295, "vsan": 10, "link": "down", "denyList": 4294967295}, {"ifIndex": 1}],
        "switchLatency": 1, "networkLatency": 2, "inorderDelivery": 1, "timers": {"fstov": 6000},
        "tdx": {"fctimer": {"enabled": true, "showRun": true, "timers": {"10": {"edtov": 3000}}}}})",
                                          "test");
    give_identity(data);
    data.settings.wwn |= uint64_t{1} << 63; // the sign bit of the database's numbers
    data.vsans.at(10).rest.assign(VSAN_REST_SIZE, 0xa5);
    data.settings.tdx_refusing = true;
    data.settings.status_events = false;
    data.session = DistributionSession{"alice", {}};
    data.session->pending[0][Timer::r_a_tov] = 30000;
    data.session->pending[10][Timer::e_d_tov] = 4000;
    Port &port = data.ports.at(1);
    port.enabled = false;
    port.alias = "Bandarchiv f\xc3\xbcr alle";
    port.speed = 32000;
    port.traps = false;
    port.traffic = {UINT32_MAX, 0, 1, 0, 0, 0, 0, 8};
    port.last_change = {1700000000, 999999};
    data.settings.system = {"alice", "", "rack 7"};
    return data;
}

class StoreTest : public testing::Test {
  protected:
    void create(const SwitchData &data = sample()) {
        Store store(folder_.path());
        store.create(data);
    }

    SwitchData open(SchemaSteps steps = schema_steps()) {
        Store store(folder_.path());
        return store.open(steps);
    }

    // Opens it, which must fail, and expects all files to be as before.
    std::string refused(SchemaSteps steps = schema_steps()) {
        const auto before = folder_content(folder_.path());
        const std::string error = refusal_of([&] { open(steps); });
        EXPECT_EQ(before, folder_content(folder_.path())) << "the files were touched";
        EXPECT_FALSE(error.empty());
        EXPECT_TRUE(contains(error, folder_ / "switch.db")) << error;
        return error;
    }

    void change(const std::string &sql) {
        SQLite::Database database(folder_ / "switch.db", SQLite::OPEN_READWRITE);
        database.exec(sql);
    }

    TemporaryFolder folder_;
};

// Copies the database with its write-ahead log as a crash would have left them.
void crash_with(const std::string &folder, const std::string &other, const std::string &sql) {
    SQLite::Database database(folder + "/switch.db", SQLite::OPEN_READWRITE);
    database.exec("PRAGMA wal_autocheckpoint = 0");
    database.exec(sql);
    std::filesystem::copy(folder + "/switch.db", other + "/switch.db");
    std::filesystem::copy(folder + "/switch.db-wal", other + "/switch.db-wal");
}

TEST_F(StoreTest, EverythingSurvivesARestart) {
    const SwitchData data = sample();
    create(data);
    EXPECT_EQ(open(), data);
    EXPECT_EQ(open(), data) << "and a second one";
}

TEST_F(StoreTest, FullSwitchSurvivesARestart) {
    const SwitchData data =
        parse_configuration(R"({"vsanRange": [{"first": 1, "last": 4095}], "portCount": 4096})", "test");
    create(data);
    EXPECT_EQ(open(), data);
}

TEST_F(StoreTest, DatabaseIsInWriteAheadModeAndForTheOwnerOnly) {
    const mode_t before = umask(077);
    create();
    umask(before);
    SQLite::Database database(folder_ / "switch.db");
    EXPECT_EQ(database.execAndGet("PRAGMA journal_mode").getString(), "wal");
    EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), static_cast<int>(schema_steps().size()));
    struct stat status {};
    ASSERT_EQ(stat((folder_ / "switch.db").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(StoreTest, LeftoversOfAnInterruptedCreationAreReplaced) {
    write_file(folder_ / "switch.db.new", "half a database");
    write_file(folder_ / "switch.db.new-wal", "half a log");
    create();
    EXPECT_EQ(open().vsans.size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "switch.db.new"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "switch.db.new-wal"));
}

TEST_F(StoreTest, CreationThatRunsOutOfSpaceLeavesNoDatabase) {
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const auto former_action = signal(SIGXFSZ, SIG_IGN);
    std::string error;
    {
        Store store(folder_.path());
        rlimit tight = former;
        tight.rlim_cur = 20000;
        setrlimit(RLIMIT_FSIZE, &tight);
        error = refusal_of([&] { store.create(sample()); });
        setrlimit(RLIMIT_FSIZE, &former);
    }
    signal(SIGXFSZ, former_action);
    EXPECT_TRUE(contains(error, "Cannot write the database")) << error;
    EXPECT_TRUE(folder_content(folder_.path()).empty());
    create();
    EXPECT_EQ(open().vsans.size(), 2u) << "and the next start succeeds";
}

TEST_F(StoreTest, SecondDaemonOnTheStateFolderIsRefused) {
    const Store first(folder_.path());
    EXPECT_TRUE(contains(refusal_of([&] { Store second(folder_.path()); }), "Another vswitchd"));
}

TEST_F(StoreTest, SecondDaemonIsRefusedWhateverIsRemovedFromTheStateFolder) {
    Store first(folder_.path());
    first.create(sample());
    first.open();
    for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
        std::filesystem::remove(entry.path());
    }
    EXPECT_TRUE(contains(refusal_of([&] { Store second(folder_.path()); }), "Another vswitchd"));
}

TEST_F(StoreTest, DatabaseThatAnotherProgramHasOpenIsNotServed) {
    create();
    SQLite::Database other(folder_ / "switch.db", SQLite::OPEN_READWRITE);
    other.execAndGet("SELECT count(*) FROM vsan");
    EXPECT_TRUE(contains(refusal_of([&] { open(); }), "locked"));
}

TEST_F(StoreTest, LogOfADatabaseThatIsGoneDoesNotReachTheNextOne) {
    create();
    TemporaryFolder crashed;
    crash_with(folder_.path(), crashed.path(), "UPDATE vsan SET name = 'late' WHERE id = 10");
    const std::string log = file_content(crashed / "switch.db-wal");
    std::filesystem::remove(crashed / "switch.db");
    Store store(crashed.path());
    store.create(empty_configuration());
    EXPECT_EQ(store.open(), empty_configuration());
    EXPECT_EQ(file_content(crashed / "switch.db-wal.old"), log);
}

// An open database, and somebody else's hands on its files.
class StoreTampering : public StoreTest {
  protected:
    StoreTampering() {
        create();
        store_ = std::make_unique<Store>(folder_.path());
        data_ = store_->open();
        EXPECT_TRUE(set_latency(100));
    }

    bool set_latency(uint32_t milliseconds) {
        Change change;
        change.settings = data_.settings;
        change.settings->switch_latency = milliseconds;
        if (!store_->write(change, data_)) {
            return false;
        }
        data_.settings = *change.settings;
        return true;
    }

    std::string database_ = folder_ / "switch.db";
    std::string log_ = folder_ / "switch.db-wal";
    std::unique_ptr<Store> store_;
    SwitchData data_;
};

TEST_F(StoreTampering, IndexOfTheLogIsNoFileThatOthersCanCutOff) {
    EXPECT_TRUE(std::filesystem::exists(log_));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "switch.db-shm"));
}

TEST_F(StoreTampering, ChangeIsRefusedWhileAFileIsAwayAndAcceptedWhenItIsBack) {
    for (const std::string &file : {database_, log_}) {
        std::filesystem::rename(file, folder_ / "away");
        testing::internal::CaptureStdout();
        EXPECT_FALSE(set_latency(200)) << file;
        EXPECT_FALSE(set_latency(300)) << file;
        const std::string said = testing::internal::GetCapturedStdout();
        const auto complaint = said.find("was removed, replaced or written by somebody else");
        ASSERT_NE(complaint, std::string::npos) << said;
        EXPECT_EQ(said.find("somebody else", complaint + 60), std::string::npos) << "said once: " << said;
        std::filesystem::rename(folder_ / "away", file);
        EXPECT_TRUE(set_latency(400)) << file;
        EXPECT_TRUE(set_latency(100)) << file;
    }
    store_.reset();
    EXPECT_EQ(open(), data_);
}

TEST_F(StoreTampering, ChangeIsRefusedOnceAnotherFileIsInThePlace) {
    for (const std::string &file : {database_, log_}) {
        std::filesystem::copy(file, folder_ / "copy");
        std::filesystem::rename(file, folder_ / "away");
        std::filesystem::rename(folder_ / "copy", file);
        EXPECT_FALSE(set_latency(200)) << file;
        std::filesystem::rename(folder_ / "away", file);
        EXPECT_TRUE(set_latency(100)) << file;
    }
}

TEST_F(StoreTampering, ChangeIsRefusedOnceAFileWasCutOff) {
    for (const std::string &file : {log_, database_}) {
        const auto size = std::filesystem::file_size(file);
        for (const uintmax_t left : {uintmax_t{0}, size / 2, size - 1}) {
            std::filesystem::resize_file(file, left);
            EXPECT_FALSE(set_latency(200)) << file << " of " << left << " bytes";
        }
    }
}

TEST_F(StoreTampering, ChangeIsRefusedOnceSomebodyHasWrittenAFileInItsPlace) {
    for (const std::string &file : {log_, database_}) {
        const std::string content = file_content(file);
        const auto written = std::filesystem::last_write_time(file);
        do { // until the clock of the file system has moved on
            write_file(file, content);
        } while (std::filesystem::last_write_time(file) == written);
        EXPECT_FALSE(set_latency(200)) << file;
    }
}

TEST_F(StoreTampering, FilesOfOthersAreLeftAloneAtTheEnd) {
    std::filesystem::remove(database_);
    std::filesystem::remove(log_);
    write_file(database_, "a backup");
    write_file(log_, "and its log");
    const auto before = folder_content(folder_.path());
    EXPECT_FALSE(set_latency(200));
    store_.reset();
    EXPECT_EQ(folder_content(folder_.path()), before);
}

TEST_F(StoreTest, StateFolderThatCannotBeWrittenIsRefused) {
    write_file(folder_ / "file", "");
    EXPECT_TRUE(contains(refusal_of([&] { ensure_directory(folder_ / "file/state", "state folder"); }),
                         "Cannot make the state folder"));
    EXPECT_TRUE(contains(refusal_of([&] { Store store(folder_ / "missing"); }), "Cannot open"));
}

constexpr char added_column[] = "ALTER TABLE vsan ADD COLUMN test INTEGER NOT NULL DEFAULT 7";

std::vector<const char *> steps_with(const char *another) {
    std::vector<const char *> steps(schema_steps().begin(), schema_steps().end());
    steps.push_back(another);
    return steps;
}

TEST_F(StoreTest, OlderSchemaIsMigratedAndKeepsItsData) {
    create();
    const SwitchData before = open();
    const auto steps = steps_with(added_column);
    EXPECT_EQ(open(steps), before);
    {
        SQLite::Database database(folder_ / "switch.db");
        EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), static_cast<int>(steps.size()));
        EXPECT_EQ(database.execAndGet("SELECT test FROM vsan WHERE id = 10").getInt(), 7);
    }
    EXPECT_EQ(open(steps), before) << "and is not migrated twice";
}

// The database of the release before ports had settings: VSANs 1 and 10, a port in each, the second
// one without link.
constexpr int last_release = 2;
constexpr char content_of_last_release[] = R"sql(
    INSERT INTO setting VALUES ('wwn', 4611686018427387905), ('change_seconds', 1700000000),
        ('change_microseconds', 5), ('e_d_tov', 2000), ('r_a_tov', 10000), ('d_s_tov', 5000), ('f_s_tov', 5000),
        ('switch_latency', 500), ('network_latency', 2000), ('inorder_delivery', 2), ('tdx_fctimer_enabled', 0),
        ('tdx_fctimer_show_run', 0);
    INSERT INTO vsan VALUES (1, 'default', 1, 1, 2112, 2, 100, 2, 500, x''), (10, 'prod', 1, 1, 2112, 2, 100, 2, 500, x'');
    INSERT INTO port VALUES (16777216, 1, 0, 1), (16781312, 10, 7, 0);
    INSERT INTO vsan_timer VALUES (10, 8, 20000);
)sql";

class StoreOfTheLastRelease : public StoreTest {
  protected:
    StoreOfTheLastRelease() {
        SQLite::Database database(folder_ / "switch.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        database.exec("PRAGMA journal_mode = WAL");
        for (const char *step : schema_steps().first(last_release)) {
            database.exec(step);
        }
        database.exec(content_of_last_release);
        database.exec("PRAGMA application_id = 1448296782; PRAGMA user_version = 2");
    }

    // What a query gives, a line a row.
    static std::string rows(const std::string &path, const std::string &sql) {
        SQLite::Database database(path);
        SQLite::Statement query(database, sql);
        std::string text;
        while (query.executeStep()) {
            for (int column = 0; column < query.getColumnCount(); ++column) {
                text += query.getColumn(column).getString() + " ";
            }
            text += "\n";
        }
        return text;
    }

    std::string copy_ = folder_ / "switch.db.v2";
};

TEST_F(StoreOfTheLastRelease, IsMigratedAndItsPortsAreAsBefore) {
    const SwitchData data = open();
    EXPECT_EQ(data.settings.wwn, 0x4000000000000001u) << "it keeps its name";
    EXPECT_EQ(data.settings.system, Settings().system);
    EXPECT_EQ(data.ports.at(16777216), Port());
    EXPECT_EQ(data.ports.at(16781312), (Port{10, 7, false}));
    EXPECT_EQ(data.vsans.at(10).timers[Timer::r_a_tov], 20000u);
    EXPECT_EQ(open(), data) << "and is not migrated twice";
}

TEST_F(StoreOfTheLastRelease, IsKeptBesideAsThatReleaseCanOpenIt) {
    open();
    EXPECT_EQ(rows(copy_, "PRAGMA user_version") + rows(copy_, "PRAGMA application_id"), "2 \n1448296782 \n");
    EXPECT_EQ(rows(copy_, "PRAGMA integrity_check"), "ok \n");
    EXPECT_EQ(rows(copy_, "SELECT * FROM port"), "16777216 1 0 1 \n16781312 10 7 0 \n");
    EXPECT_EQ(rows(copy_, "SELECT * FROM vsan_timer"), "10 8 20000 \n");
    const std::string tables = "SELECT sql FROM sqlite_schema ORDER BY name";
    {
        SQLite::Database made(folder_ / "made.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        for (const char *step : schema_steps().first(last_release)) {
            made.exec(step);
        }
    }
    EXPECT_EQ(rows(copy_, tables), rows(folder_ / "made.db", tables));
    std::filesystem::remove(folder_ / "made.db");
    EXPECT_EQ(folder_content(folder_.path()).size(), 2u) << "no draft is left";

    const SwitchData migrated = open();
    std::filesystem::rename(copy_, folder_ / "switch.db");
    EXPECT_EQ(open(), migrated) << "the copy has everything";
}

TEST_F(StoreOfTheLastRelease, CopyHasWhatStandsOnlyInTheLog) {
    TemporaryFolder crashed;
    crash_with(folder_.path(), crashed.path(), "UPDATE vsan SET name = 'late' WHERE id = 10");
    EXPECT_EQ(Store(crashed.path()).open().vsans.at(10).name, "late");
    EXPECT_EQ(rows(crashed / "switch.db.v2", "SELECT name FROM vsan WHERE id = 10"), "late \n");
}

TEST_F(StoreOfTheLastRelease, CopyThatIsThereAlreadyStays) {
    write_file(copy_, "an earlier one");
    EXPECT_EQ(open().vsans.size(), 2u);
    EXPECT_EQ(file_content(copy_), "an earlier one");
}

TEST_F(StoreOfTheLastRelease, DraftOfACopyThatWasInterruptedIsReplaced) {
    write_file(copy_ + ".new", "half a copy");
    open();
    EXPECT_FALSE(std::filesystem::exists(copy_ + ".new"));
    EXPECT_EQ(rows(copy_, "PRAGMA user_version"), "2 \n");
}

TEST_F(StoreOfTheLastRelease, IsNotMigratedWithoutRoomForTheCopy) {
    std::string error;
    {
        const FullDisk disk;
        error = refused();
    }
    EXPECT_TRUE(contains(error, "Cannot copy the database")) << error;
    EXPECT_TRUE(contains(error, "make room")) << error;
    EXPECT_TRUE(contains(error, "switch.db.v2")) << error;
    EXPECT_EQ(open().vsans.size(), 2u) << "and with room it is";
}

TEST_F(StoreOfTheLastRelease, IsNotCopiedWhenItIsDamaged) {
    const std::string whole = file_content(folder_ / "switch.db");
    write_file(folder_ / "switch.db", whole.substr(0, whole.size() - 4096));
    EXPECT_TRUE(contains(refused(), "damaged"));
}

TEST_F(StoreOfTheLastRelease, RefusesTheDatabaseOfThisOne) {
    open();
    const std::string error = refused(schema_steps().first(last_release));
    EXPECT_TRUE(contains(error, "written by a newer version")) << error;
}

TEST_F(StoreTest, MigrationThatFailsLeavesTheOldSchema) {
    create();
    const SwitchData before = open();
    const auto steps = steps_with("ALTER TABLE vsan ADD COLUMN test INTEGER; SELECT broken");
    EXPECT_TRUE(contains(refusal_of([&] { open(steps); }), "Cannot open the database"));
    EXPECT_EQ(open(), before);
}

TEST_F(StoreTest, NewerSchemaIsRefusedUntouched) {
    create();
    open(steps_with(added_column));
    const std::string error = refused();
    EXPECT_TRUE(contains(error, "newer version")) << error;
    EXPECT_TRUE(contains(error, "move the file away")) << error;
}

TEST_F(StoreTest, NewerSchemaThatStandsOnlyInTheLogIsRefusedUntouched) {
    create();
    TemporaryFolder crashed;
    crash_with(folder_.path(), crashed.path(), "PRAGMA user_version = 99");
    const auto before = folder_content(crashed.path());
    const std::string error = refusal_of([&] {
        Store store(crashed.path());
        store.open();
    });
    EXPECT_TRUE(contains(error, "schema 99")) << error;
    EXPECT_EQ(before, folder_content(crashed.path()));
}

TEST_F(StoreTest, ChangeThatStandsOnlyInTheLogIsNotLost) {
    create();
    TemporaryFolder crashed;
    crash_with(folder_.path(), crashed.path(), "UPDATE vsan SET name = 'late' WHERE id = 10");
    Store store(crashed.path());
    EXPECT_EQ(store.open().vsans.at(10).name, "late");
}

TEST_F(StoreTest, DatabaseInAFolderWithSpecialCharactersIsOpened) {
    const std::string odd = folder_ / "a?b#c%41 d";
    std::filesystem::create_directory(odd);
    {
        Store store(odd);
        store.create(sample());
    }
    EXPECT_EQ(Store(odd).open().vsans.size(), 2u);
}

TEST_F(StoreTest, FileThatIsNoDatabaseIsRefusedUntouched) {
    write_file(folder_ / "switch.db", std::string(5000, 'x'));
    EXPECT_TRUE(contains(refused(), "move it away"));
}

TEST_F(StoreTest, EmptyFileIsRefusedUntouched) {
    write_file(folder_ / "switch.db", "");
    EXPECT_TRUE(contains(refused(), "it is empty"));
}

TEST_F(StoreTest, TruncatedDatabaseIsRefusedUntouched) {
    create();
    const std::string whole = file_content(folder_ / "switch.db");
    for (const size_t size : {size_t{50}, size_t{100}, size_t{5000}, whole.size() - 4096}) {
        write_file(folder_ / "switch.db", whole.substr(0, size));
        EXPECT_TRUE(contains(refused(), "move it away")) << size;
    }
}

TEST_F(StoreTest, OverwrittenPageIsRefusedUntouched) {
    create();
    const std::string whole = file_content(folder_ / "switch.db");
    ASSERT_EQ(whole.size() % 4096, 0u);
    for (size_t page = 4096; page < whole.size(); page += 4096) {
        std::string damaged = whole;
        damaged.replace(page, 16, 16, '\xff');
        write_file(folder_ / "switch.db", damaged);
        EXPECT_TRUE(contains(refused(), "damaged")) << page;
    }
}

TEST_F(StoreTest, AnotherProgramSDatabaseIsRefusedUntouched) {
    {
        SQLite::Database other(folder_ / "switch.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        other.exec("CREATE TABLE t (x)");
    }
    EXPECT_TRUE(contains(refused(), "not a switch's database"));
}

class StoreDamage : public StoreTest, public testing::WithParamInterface<const char *> {};

TEST_P(StoreDamage, InTheDataIsRefusedUntouched) {
    create();
    change(std::string("PRAGMA foreign_keys = OFF; PRAGMA ignore_check_constraints = ON; ") + GetParam());
    EXPECT_TRUE(contains(refused(), "damaged"));
}

INSTANTIATE_TEST_SUITE_P(
    Every, StoreDamage,
    testing::Values("DELETE FROM vsan WHERE id = 1", "DELETE FROM vsan WHERE id = 10", "UPDATE port SET vsan = 11",
                    "UPDATE vsan SET id = 5000 WHERE id = 10", "UPDATE vsan SET mtu = -1",
                    "UPDATE vsan SET mtu = 4294967296", "UPDATE vsan SET rest = x'00'",
                    "DELETE FROM setting WHERE name = 'wwn'",
                    "UPDATE setting SET value = 4294967296 WHERE name = 'switch_latency'",
                    "UPDATE setting SET value = -1 WHERE name = 'r_a_tov'",
                    "UPDATE setting SET value = 2 WHERE name = 'tdx_fctimer_enabled'",
                    "UPDATE vsan_timer SET timer = 11", "DROP TABLE port", "DELETE FROM timer_session",
                    "UPDATE pending_timer SET vsan = 11 WHERE vsan = 10", "UPDATE port SET alias = char(10)",
                    "UPDATE port SET alias = CAST(x'ff' AS TEXT)", "UPDATE port SET alias = printf('%65d', 1)",
                    "UPDATE port SET speed = 8001", "UPDATE port SET enabled = 2", "UPDATE port SET traps = 2",
                    "UPDATE port SET change_microseconds = 1000000", "UPDATE port_traffic SET if_index = 2",
                    "UPDATE port_traffic SET counter = 8 WHERE counter = 7",
                    "UPDATE port_traffic SET rate = 4294967296", "DELETE FROM system_text WHERE text = 2",
                    "UPDATE system_text SET value = char(27)", "PRAGMA user_version = 0"));

} // namespace
