// SPDX-License-Identifier: Apache-2.0
#include "tool/request_counters.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "contract/request_counters.h"
#include "run_directory.h"

namespace vswitchctl {

namespace {

// What the switch keeps of the agents at a reset has a bound.
constexpr size_t max_agents = 64;

// A process counts while its file is read: two readings that agree are whole.
constexpr int max_readings = 8;

using Bytes = std::array<std::byte, sizeof(request_counters) + 1>; // one more shows a file that is too long

class File {
  public:
    explicit File(const std::string &path)
        : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)) {}
    ~File() {
        if (is_open()) {
            close(descriptor_);
        }
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    bool is_open() const { return descriptor_ >= 0; }
    bool is_regular() const {
        struct stat status {};
        return fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
    }
    // Whether the process that counts in it is still there.
    bool is_in_use() const { return flock(descriptor_, LOCK_SH | LOCK_NB) != 0; }

    std::span<const std::byte> read_into(Bytes &bytes) const {
        const ssize_t length = pread(descriptor_, bytes.data(), bytes.size(), 0);
        return std::span(bytes).first(static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }

  private:
    int descriptor_;
};

struct Agent {
    std::string name;
    uint32_t pid = 0;
    AgentCounters counters;
    std::string problem; // why there are no counters; or empty
};

// The name and process id in a file's name. Nothing when it is none of these files.
std::optional<Agent> named_by(std::string_view file_name) {
    if (!file_name.starts_with(REQUEST_COUNTERS_PREFIX)) {
        return std::nullopt;
    }
    file_name.remove_prefix(sizeof REQUEST_COUNTERS_PREFIX - 1);
    const size_t dot = std::min(file_name.find('.'), file_name.size());
    Agent agent;
    agent.name = file_name.substr(0, dot);
    file_name.remove_prefix(std::min(dot + 1, file_name.size()));
    const char *end = file_name.data() + file_name.size();
    const auto number = std::from_chars(file_name.data(), end, agent.pid);
    return number.ec == std::errc() && number.ptr == end && !agent.name.empty() ? std::optional(agent) : std::nullopt;
}

// Reads the file of an agent. False when the agent has gone.
bool read_agent(const std::string &path, Agent &agent) {
    const File file(path);
    if (!file.is_open()) {
        agent.problem = std::strerror(errno);
        return errno != ENOENT;
    }
    if (file.is_regular() && !file.is_in_use()) {
        return false;
    }
    Bytes bytes;
    std::optional<AgentCounters> latest;
    for (int reading = 0; reading < max_readings; ++reading) {
        const auto former = std::exchange(latest, decode_request_counters(file.read_into(bytes)));
        if (!latest || latest == former) {
            break;
        }
    }
    if (latest) {
        agent.counters = std::move(*latest);
    } else {
        agent.problem = "it is not what this version of the tool reads";
    }
    return true;
}

std::vector<Agent> read_agents() {
    const std::string directory = run_directory();
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(directory.c_str()), closedir);
    std::vector<Agent> agents;
    const dirent *entry = nullptr;
    while (folder && (entry = readdir(folder.get()))) {
        auto agent = named_by(entry->d_name);
        if (agent && read_agent(fmt::format("{}/{}", directory, entry->d_name), *agent)) {
            agents.push_back(std::move(*agent));
        }
        if (agents.size() > max_agents) {
            throw Refusal(fmt::format("More than {} agents count what they ask in {}.", max_agents, directory));
        }
    }
    std::ranges::sort(agents, {}, [](const Agent &agent) { return std::pair(agent.name, agent.pid); });
    return agents;
}

// What the agents have counted so far as a text that the switch keeps: [[instance, [[service, opcode, kind,
// asked, refused, unanswered], ...]], ...].
std::string note_of(const std::vector<Agent> &agents) {
    Json note = Json::array();
    for (const Agent &agent : agents) {
        Json rows = Json::array();
        for (const auto &[key, counts] : agent.counters.rows) {
            const auto &[service, opcode, kind] = key;
            rows.push_back({service, opcode, kind, counts.asked, counts.refused, counts.unanswered});
        }
        note.push_back({agent.counters.instance, std::move(rows)});
    }
    return note.dump();
}

// The counters in such a text, by instance. One that is none has no counters.
std::map<uint64_t, AgentCounters> read_note(const std::string &text) {
    std::map<uint64_t, AgentCounters> noted;
    const Json note = Json::parse(text, nullptr, false);
    if (!note.is_array()) {
        return noted;
    }
    for (const Json &agent : note) {
        AgentCounters &counters = noted[agent.at(0).get<uint64_t>()];
        for (const Json &row : agent.at(1)) {
            counters.rows[{row.at(0), row.at(1), row.at(2)}] = {row.at(3), row.at(4), row.at(5)};
        }
    }
    return noted;
}

// What has been counted since a reset. Nothing, where that was behind the reading of the counters.
RequestCounts since(const RequestCounts &counts, const AgentCounters &former, const RequestKey &key) {
    const auto found = former.rows.find(key);
    const RequestCounts before = found == former.rows.end() ? RequestCounts() : found->second;
    const auto growth = [](uint64_t now, uint64_t then) { return now > then ? now - then : 0; };
    return {growth(counts.asked, before.asked), growth(counts.refused, before.refused),
            growth(counts.unanswered, before.unanswered)};
}

// The rows of the table, which begin with the switch's.
class Rows {
  public:
    explicit Rows(const Json &answered) {
        for (const Json &row : answered) {
            of({row.at("service"), row.at("opcode"), row.at("kind")})["answered"] = row.at("answered");
        }
    }

    void add(const Agent &agent, const AgentCounters &former) {
        for (const auto &[key, counts] : agent.counters.rows) {
            const RequestCounts fresh = since(counts, former, key);
            if (fresh == RequestCounts()) {
                continue;
            }
            Json &row = of(key);
            row["asked"] = row["asked"].get<uint64_t>() + fresh.asked;
            row["refused"] = row["refused"].get<uint64_t>() + fresh.refused;
            row["unanswered"] = row["unanswered"].get<uint64_t>() + fresh.unanswered;
        }
    }

    Json list() const {
        Json all = Json::array();
        for (const auto &[key, row] : rows_) {
            all.push_back(row);
        }
        return all;
    }

  private:
    Json &of(const RequestKey &key) {
        const auto &[service, opcode, kind] = key;
        const Json row = {{"service", service}, {"opcode", opcode}, {"kind", kind},   {"asked", 0},
                          {"answered", 0},      {"refused", 0},     {"unanswered", 0}};
        return rows_.try_emplace(key, row).first->second;
    }

    std::map<RequestKey, Json> rows_;
};

} // namespace

std::optional<AgentCounters> decode_request_counters(std::span<const std::byte> bytes) {
    request_counters file;
    if (bytes.size() != sizeof file) {
        return std::nullopt;
    }
    std::memcpy(&file, bytes.data(), sizeof file);
    if (file.magic != REQUEST_COUNTERS_MAGIC || file.version != REQUEST_COUNTERS_VERSION) {
        return std::nullopt;
    }
    AgentCounters counters{file.instance, {}};
    for (const request_counter &row : file.rows) {
        if (row.is_used > 1) {
            return std::nullopt;
        }
        if (row.is_used == 1) {
            counters.rows[{row.service, row.opcode, row.kind}] = {row.asked, row.refused, row.unanswered};
        }
    }
    return counters;
}

Json read_request_counters(bool reset) {
    const std::vector<Agent> agents = read_agents();
    const Json reply = reset ? change("counters.reset", {{"note", note_of(agents)}}) : look("counters.show");
    const auto noted = read_note(reply.at("note"));
    Rows rows(reply.at("requests"));
    Json list = Json::array();
    for (const Agent &agent : agents) {
        const auto former = noted.find(agent.counters.instance);
        rows.add(agent, former == noted.end() ? AgentCounters() : former->second);
        list.push_back({{"name", agent.name}, {"pid", agent.pid}});
        if (!agent.problem.empty()) {
            list.back()["problem"] = agent.problem;
        }
    }
    return {{"requests", rows.list()}, {"agents", std::move(list)}};
}

} // namespace vswitchctl
