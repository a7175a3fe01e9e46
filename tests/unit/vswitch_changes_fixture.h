// SPDX-License-Identifier: Apache-2.0
// A switch with its database, and a hand on both.
#ifndef VSWITCH_CHANGES_FIXTURE_H
#define VSWITCH_CHANGES_FIXTURE_H

#include <csignal>
#include <memory>
#include <sys/resource.h>
#include <vector>

#include "changes/changes.h"
#include "model/store.h"
#include "vswitch_test_support.h"

namespace vswitch_test {

// While it lives, no file of this process can grow: as on a full disk.
class FullDisk {
  public:
    FullDisk() {
        getrlimit(RLIMIT_FSIZE, &former_);
        former_action_ = signal(SIGXFSZ, SIG_IGN);
        rlimit tight = former_;
        tight.rlim_cur = 1;
        setrlimit(RLIMIT_FSIZE, &tight);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &former_);
        signal(SIGXFSZ, former_action_);
    }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

  private:
    rlimit former_{};
    sighandler_t former_action_;
};

class ChangeTest : public testing::Test {
  protected:
    static constexpr char configuration[] = R"({
        "vsans": [{"id": 1, "name": "default"}, {"id": 10, "name": "prod"}, {"id": 20, "name": "test"},
                  {"id": 30, "state": "suspended"}],
        "ports": [{"ifIndex": 101, "vsan": 10}, {"ifIndex": 102, "vsan": 10}, {"ifIndex": 103, "vsan": 20},
                  {"ifIndex": 104, "vsan": 20, "link": "down"}, {"ifIndex": 105, "vsan": 30},
                  {"ifIndex": 106, "link": "down"}],
        "tdx": {"fctimer": {"timers": {"10": {"ratov": 30000}}}}})";
    static constexpr char roles[] = R"({"roles": [
        {"name": "backup", "vsans": ["10", "40"], "interfaces": ["101-103"], "users": ["alice"]}]})";

    ChangeTest() {
        store_ = std::make_unique<vswitch::Store>(folder_.path());
        store_->create(vswitch::parse_configuration(configuration, "test"));
        write_file(folder_ / "roles.json", roles);
        start();
    }

    void start() {
        if (!store_) {
            store_ = std::make_unique<vswitch::Store>(folder_.path());
        }
        const std::string role_file = folder_ / "roles.json";
        target_ = std::make_unique<vswitch::ServedSwitch>(store_->open(), vswitch::load_roles(role_file), store_.get(),
                                                          role_file);
    }

    // The switch as the database has it: what a restart would give.
    vswitch::SwitchData restarted() {
        target_.reset();
        store_.reset();
        start();
        return data();
    }

    const vswitch::SwitchData &data() const { return target_->model.data(); }
    const vswitch::Vsan &vsan(uint32_t id) const { return data().vsans.at(id); }

    // One request; the answer is in reply_ then. Returns its status.
    uint32_t ask_service(uint32_t service, uint32_t opcode, uint32_t kind, const Buffer &payload,
                         const std::string &user) {
        vswitch::Request request;
        request.service = service;
        request.opcode = opcode;
        request.kind = kind;
        request.payload = payload;
        request.length = static_cast<uint32_t>(payload.size());
        request.user = user;
        vswitch::answer_request(*target_, request, reply_);
        return reply_.status;
    }

    // One request of the VSAN manager, as a user of the management protocol sends it.
    uint32_t send(uint32_t opcode, uint32_t kind, const Buffer &payload, const std::string &user = "") {
        ask_service(MANAGER_SAP_VSAN, opcode, kind, payload, user);
        if (kind == MTS_KIND_SET || kind == MTS_KIND_DELETE || reply_.status != 0) {
            EXPECT_FALSE(reply_.has_data) << "a change and a refusal are answered by their status alone";
        }
        return reply_.status;
    }

    // The block that the manager answers for a VSAN; without one, a new VSAN's.
    Buffer block_of(uint32_t id) {
        if (send(149, MTS_KIND_GET, vsan_block(id)) == STATUS_SUCCESS) {
            return reply_.data;
        }
        Buffer block;
        vswitch::append_vsan_block(block, id, vswitch::new_vsan(id), 0);
        return block;
    }

    uint32_t set_vsan(const Buffer &block, const std::string &user = "") {
        return send(149, MTS_KIND_SET, block, user);
    }

    // Changes one word of a VSAN's record, at its offset in the record.
    uint32_t set_word(uint32_t id, size_t offset, uint32_t value, const std::string &user = "") {
        Buffer block = block_of(id);
        vswitch::store_word(block, VSAN_RECORD_AT + offset, value);
        return set_vsan(block, user);
    }

    uint32_t set_name(uint32_t id, const std::string &name, const std::string &user = "") {
        Buffer block = block_of(id);
        std::memset(&block[VSAN_RECORD_AT + 36], 0, VSAN_NAME_FIELD);
        std::memcpy(&block[VSAN_RECORD_AT + 36], name.data(), name.size());
        return set_vsan(block, user);
    }

    uint32_t delete_vsan(uint32_t id, const std::string &user = "") {
        return send(149, MTS_KIND_DELETE, vsan_block(id), user);
    }

    uint32_t set_port(uint32_t if_index, uint32_t vsan, const std::string &user = "") {
        Buffer record;
        vswitch::append_interface_record(record, if_index, {vsan, 0, true});
        return send(124, MTS_KIND_SET, record, user);
    }

    // The events published since the last call, as one line each: words, without the moment, then text.
    std::vector<std::string> events() {
        std::vector<std::string> lines;
        for (const vswitch::Event &event : target_->events.staged()) {
            const Buffer &payload = event.payload;
            const size_t end = event.event_class == EVENT_SETTING_CHANGED ? size_t{SETTING_EVENT_TEXT} : payload.size();
            std::string line = std::to_string(event.event_class) + ":";
            for (size_t at = 0; at < end; at += 4) {
                if (event.event_class == EVENT_PORT_CHANGED && at == PORT_CHANGED_MOMENT) {
                    at += MOMENT_SIZE;
                }
                line += " " + std::to_string(word(payload, at));
            }
            if (end < payload.size()) {
                line += " " + std::string(payload.begin() + static_cast<ptrdiff_t>(end), payload.end());
            }
            lines.push_back(line);
        }
        target_->events.deliver();
        return lines;
    }

    static constexpr vswitch::Requester operator_{"admin", true};

    TemporaryFolder folder_;
    std::unique_ptr<vswitch::Store> store_;
    std::unique_ptr<vswitch::ServedSwitch> target_;
    vswitch::Reply reply_;
};

using Lines = std::vector<std::string>;

} // namespace vswitch_test

#endif
