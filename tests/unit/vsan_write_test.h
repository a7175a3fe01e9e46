// SPDX-License-Identifier: Apache-2.0
// The fixture of the VSAN table's write tests: a switch that takes changes, the
// requests of a SET compared whole, and lists that must be empty in the end.
#ifndef VSAN_WRITE_TEST_H
#define VSAN_WRITE_TEST_H

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "module_test.h"
#include "set_pdu.h"

// Kinds of VSAN requests.
constexpr uint32_t kind_get = 1;
constexpr uint32_t kind_set = 3;
constexpr uint32_t kind_delete = 4;

constexpr uint32_t no_such_vsan = 0x40190001;

// One VSAN request as it must have been sent.
struct wanted_request {
    uint32_t kind;
    bytes record;
};

class VsanWriteTest : public ModuleTest {
  protected:
    VsanWriteTest() {
        platform.user = "alice";
        platform.session = 77;
        platform.manager = [this](const sent_request &request) { return serve(request); };
    }

    void TearDown() override {
        EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{})) << "pending records stayed";
        EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{})) << "undo copies stayed";
        EXPECT_EQ(agent.records_held.size(), 0u) << "VSAN records were not released";
        platform.manager = nullptr;
        ModuleTest::TearDown();
    }

    // The VSAN numbers of the records on a list, sorted.
    static std::vector<int64_t> listed(const indxobj_list &list) {
        std::vector<int64_t> numbers;
        for (const void *data : data_on(list)) {
            numbers.push_back(static_cast<const vsanEntry *>(data)->vsanIndex);
        }
        std::sort(numbers.begin(), numbers.end());
        return numbers;
    }

    // The one record on a list.
    static const vsanEntry &only_record(const indxobj_list &list) {
        const std::vector<const void *> all = data_on(list);
        if (all.size() != 1) {
            throw std::logic_error("the list does not hold one record");
        }
        return *static_cast<const vsanEntry *>(all[0]);
    }

    // Statuses with which the switch answers {kind, VSAN}, instead of obeying.
    std::map<std::pair<uint32_t, uint32_t>, scripted_reply> answers;
    void refuse(uint32_t kind, uint32_t vsan, uint32_t status) { answers[{kind, vsan}] = {status, 0, std::nullopt}; }

    // The records that the module's requests must carry. Both are 2108 bytes.

    // A VSAN that the switch has, as it is sent with a change: in-order delivery and
    // drop latency 0, everything else as it stands.
    static vsan_row unchanged(uint32_t vsan) {
        vsan_row row = platform.vsans.at(vsan);
        row.inorder = 0;
        row.drop_latency = 0;
        return row;
    }
    // A new VSAN with its default values.
    static vsan_row created(uint32_t vsan) {
        char name[16];
        snprintf(name, sizeof name, "VSAN%.4d", static_cast<int>(vsan));
        return {vsan, 1, 1, 2112, 0, 100, 2, 1, 0, name, 0};
    }

    static wanted_request lookup(uint32_t vsan) { return {kind_get, number_alone(vsan)}; }
    static wanted_request change(const vsan_row &row) { return {kind_set, row_record(row)}; }
    static wanted_request deletion(const vsan_row &row) { return {kind_delete, row_record(row)}; }
    // The part of a record that belongs to the manager is zero in a new row.
    static wanted_request creation(const vsan_row &row) {
        bytes record = row_record(row);
        std::fill(record.begin() + 76, record.end(), uint8_t{0});
        return {kind_set, record};
    }
    static wanted_request deletion_of_new(uint32_t vsan) { return {kind_delete, number_alone(vsan)}; }

    // Compares all requests sent, whole, with these, and forgets them.
    static void expect_requests(const std::vector<wanted_request> &wanted) {
        std::string sent;
        for (const sent_request &request : platform.requests) {
            sent += " " + std::to_string(request.kind) + ":" + std::to_string(request.vsan());
        }
        EXPECT_EQ(platform.requests.size(), wanted.size()) << "sent:" << sent;
        for (size_t i = 0; i < std::min(wanted.size(), platform.requests.size()); ++i) {
            SCOPED_TRACE("request " + std::to_string(i) + " of" + sent);
            expect_request(platform.requests[i], wanted[i]);
        }
        platform.requests.clear();
    }

    // Compares the history, but for the lookups' own lines, with these lines ('#': a
    // source line number), and forgets it.
    static void expect_traces(const std::vector<std::pair<uint32_t, std::string>> &wanted) {
        std::vector<trace_line> lines;
        for (const trace_line &line : platform.history) {
            if (line.text.compare(0, 16, "header_vsanEntry") != 0) {
                lines.push_back(line);
            }
        }
        EXPECT_EQ(lines.size(), wanted.size()) << all_traces();
        for (size_t i = 0; i < std::min(lines.size(), wanted.size()); ++i) {
            EXPECT_EQ(lines[i].trace_class, wanted[i].first) << lines[i].text;
            EXPECT_TRUE(is_trace(lines[i].text, wanted[i].second)) << lines[i].text << "is not\n" << wanted[i].second;
        }
        forget_traces();
    }
    static void forget_traces() {
        platform.history.clear();
        platform.debug.clear();
    }

    static std::string sent_kinds() {
        std::string kinds;
        for (const sent_request &request : platform.requests) {
            kinds += std::to_string(request.kind);
        }
        return kinds;
    }

    using errors = std::vector<std::pair<uint32_t, uint32_t>>;

  private:
    static bytes number_alone(uint32_t vsan) {
        bytes record(row_size);
        put_word(record, 0, vsan);
        return record;
    }

    static void expect_request(const sent_request &sent, const wanted_request &wanted) {
        const bool is_read = wanted.kind == kind_get;
        EXPECT_EQ(sent.opcode, 149u);
        EXPECT_EQ(sent.kind, wanted.kind);
        EXPECT_EQ(sent.length, 2632u);
        EXPECT_EQ(sent.expects_reply, is_read);
        EXPECT_EQ(sent.user, is_read ? std::nullopt : std::optional<std::string>("alice"));
        EXPECT_EQ(sent.session, is_read ? 0u : 77u);
        EXPECT_EQ(sent.service, 15u);
        EXPECT_EQ(sent.queue, mts_response_q);
        EXPECT_EQ(sent.wait_class, 4u);

        bytes block(row_block_size);
        std::copy(wanted.record.begin(), wanted.record.end(), block.begin() + row_offset);
        ASSERT_EQ(sent.payload.size(), block.size());
        const auto difference = std::mismatch(block.begin(), block.end(), sent.payload.begin());
        if (difference.first != block.end()) {
            const auto at = static_cast<size_t>(difference.first - block.begin());
            ADD_FAILURE() << "byte " << at << " (byte " << static_cast<int>(at) - int{row_offset}
                          << " of the record) is " << int{*difference.second} << ", not " << int{*difference.first};
        }
    }

    scripted_reply serve(const sent_request &request) {
        const auto vsan = static_cast<uint32_t>(request.vsan());
        const auto scripted = answers.find({request.kind, vsan});
        if (scripted != answers.end()) {
            return scripted->second;
        }
        const auto row = platform.vsans.find(vsan);
        switch (request.kind) {
        case kind_get:
            if (row == platform.vsans.end()) {
                return {no_such_vsan, 0, std::nullopt};
            }
            return {0, 0, row_reply(row->second)};
        case kind_set:
            platform.vsans[vsan] = row_in(request.payload);
            return {};
        case kind_delete:
            platform.vsans.erase(vsan);
            return {};
        default:
            ++platform.unscripted_requests;
            return {some_failure, 0, std::nullopt};
        }
    }

    static vsan_row row_in(const bytes &block) {
        const auto word = [&](size_t offset) { return get_word(block, row_offset + offset); };
        const auto *name = reinterpret_cast<const char *>(block.data()) + row_offset + 36;
        return {word(0),  word(4),  word(8),  word(12), word(16),
                word(20), word(24), word(28), word(32), std::string(name, strnlen(name, 36)),
                word(72)};
    }
};

#endif
