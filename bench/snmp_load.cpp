// SPDX-License-Identifier: Apache-2.0
// Measures streams of requests against each other: slices of the one and of the other take
// turns, so that whatever else the machine does meets both alike.
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "stream.h"

namespace {

using bench::Clock;
using bench::Failure;
using nlohmann::json;

constexpr char help[] = R"(Usage: snmp_load DESCRIPTION
Runs streams of operations and prints, as JSON, how many items (values, commits)
each one had carried out per second in each of its slices: [[rate, ...], ...].
All have the same number of slices.
DESCRIPTION is a JSON object:

  seconds      how long each stream runs at least in all; or
  passes       how often each goes through all of its instances, in one slice; or
  operations   how many each carries out, in one slice
  slice        seconds of a slice (default 0.1); the streams take turns
  warm_up      operations that each stream carries out before (default 20)
  streams      list of objects:
    kind         get, getbulk, set, or commit
    port         UDP port of the agent on 127.0.0.1
    oid          the object, without instance
    first count  its instances, which are asked for in turn (default 0 and 1)
    community    (default public)
    outstanding  requests under way at any time (default 1)
    repetitions  of a getbulk (default 50)
    type         BER tag of every value (default 4, OCTET STRING)
    columns      of a getbulk, instead of oid and type: a list of objects with both
    database     of a commit: a copy of a switch's database, with VSANs 1 to count
)";

std::unique_ptr<bench::Stream> make_stream(const json &description) {
    if (description.at("kind") == "commit") {
        return bench::make_commit_stream(description);
    }
    return bench::make_snmp_stream(description);
}

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// One slice: its items per second, and how long it took.
double rate_of_slice(bench::Stream &stream, const bench::Limit &limit, double &spent) {
    const auto start = Clock::now();
    const auto items = static_cast<double>(stream.run(limit));
    const double seconds = seconds_since(start);
    spent += seconds;
    return items / seconds;
}

json measure(const json &description) {
    std::vector<std::unique_ptr<bench::Stream>> streams;
    for (const json &stream : description.at("streams")) {
        streams.push_back(make_stream(stream));
    }
    std::vector<std::vector<double>> rates(streams.size());
    std::vector<double> spent(streams.size(), 0.0);

    if (!description.contains("seconds")) {
        for (size_t i = 0; i < streams.size(); ++i) {
            bench::Limit limit;
            limit.operations = description.contains("passes")
                                   ? description["passes"].get<uint64_t>() * streams[i]->operations_per_pass()
                                   : description.at("operations").get<uint64_t>();
            rates[i].push_back(rate_of_slice(*streams[i], limit, spent[i]));
        }
        return rates;
    }

    const double wanted = description["seconds"];
    const auto slice = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::min(description.value("slice", 0.1), wanted)));
    for (const auto &stream : streams) {
        stream->run({.operations = description.value("warm_up", uint64_t{20})});
    }
    while (*std::ranges::min_element(spent) < wanted) {
        for (size_t i = 0; i < streams.size(); ++i) {
            rates[i].push_back(rate_of_slice(*streams[i], {.until = Clock::now() + slice}, spent[i]));
        }
    }
    return rates;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::string_view(argv[1]) == "--help") {
        fmt::print("{}", help);
        return 0;
    }
    if (argc != 2) {
        fmt::print(stderr, "snmp_load: it takes one description. Try --help.\n");
        return 2;
    }
    try {
        fmt::print("{}\n", measure(json::parse(argv[1])).dump());
        return 0;
    } catch (const std::exception &error) {
        fmt::print(stderr, "snmp_load: {}\n", error.what());
        return 1;
    }
}
