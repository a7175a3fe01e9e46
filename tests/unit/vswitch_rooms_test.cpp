// SPDX-License-Identifier: Apache-2.0
// The rooms of the virtual switch stand on floors: a file includes headers of its own floor and of
// those below it.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace {

const std::filesystem::path sources = SWITCH_SOURCES;

// The floor of each room. The services' tables name the operator's, which is why these two share one.
const std::map<std::string, int> floors = {{"contract", 0}, {"model", 1},    {"changes", 2},
                                           {"services", 3}, {"operator", 3}, {"network", 4}};

// Programs of their own, which know the switch by the contract only.
const std::set<std::string> programs = {"supervisor", "tool"};

// The room of a path such as "model/store.h", or "" when it names none.
std::string room_of(const std::string &path) {
    const std::string room = path.substr(0, path.find('/'));
    return room != path && (floors.contains(room) || programs.contains(room)) ? room : "";
}

// Calls `look` with each file of a room, and each header that it includes by its room.
template <typename Look> void for_each_include(const Look &look) {
    const std::regex include("#include \"([^\"]+)\"");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(sources)) {
        const std::string file = std::filesystem::relative(entry.path(), sources).string();
        if (!entry.is_regular_file() || room_of(file).empty()) {
            continue;
        }
        std::ifstream text(entry.path());
        for (std::string line; std::getline(text, line);) {
            std::smatch found;
            if (std::regex_match(line, found, include)) {
                look(file, found[1].str());
            }
        }
    }
}

TEST(Rooms, NoIncludeRunsUp) {
    size_t seen = 0;
    for_each_include([&](const std::string &file, const std::string &header) {
        const std::string from = room_of(file), to = room_of(header);
        if (programs.contains(from) || to.empty()) {
            return;
        }
        ++seen;
        ASSERT_FALSE(programs.contains(to)) << file << " includes " << header;
        EXPECT_LE(floors.at(to), floors.at(from)) << file << " includes " << header;
    });
    EXPECT_GT(seen, 100u);
}

TEST(Rooms, ServicesKnowNothingOfTheOperator) {
    for_each_include([](const std::string &file, const std::string &header) {
        EXPECT_FALSE(room_of(file) == "services" && room_of(header) == "operator") << file << " includes " << header;
    });
}

TEST(Rooms, OtherProgramsKnowTheSwitchByContractOnly) {
    std::map<std::string, size_t> seen;
    for_each_include([&](const std::string &file, const std::string &header) {
        const std::string from = room_of(file), to = room_of(header);
        if (programs.contains(from)) {
            ++seen[from];
            EXPECT_TRUE(to.empty() || to == from || to == "contract") << file << " includes " << header;
        }
    });
    for (const std::string &program : programs) {
        EXPECT_GT(seen[program], 10u) << program;
    }
}

TEST(Rooms, HeadersAreIncludedByTheirRoom) {
    for_each_include([](const std::string &file, const std::string &header) {
        EXPECT_FALSE(header.find('/') == std::string::npos && std::filesystem::exists(sources / room_of(file) / header))
            << file << " includes " << header << " without its room";
    });
}

} // namespace
