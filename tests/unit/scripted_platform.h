// SPDX-License-Identifier: Apache-2.0
// A platform for the module under test: it implements every function of the platform's
// headers inside the test program, answers as the test says and records every call.
// It does no more than the headers ask of a platform: outputs of a call that failed are
// scribbled upon, or left as they were where the module relies on that, a list that is
// created again is another one, and results that nobody looks at are failures.
//
// It serves one test at a time and knows nothing of the test framework, so that fuzz
// targets can use it as well.
#ifndef SCRIPTED_PLATFORM_H
#define SCRIPTED_PLATFORM_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "indxobj.h"
#include "mts.h"
#include "netsnmpagent_oryx.h"

#include "wire_bytes.h"

// One call of cmi_req_resp, with the payload as it was when it was sent.
struct sent_request {
    uint32_t opcode;
    uint32_t kind;
    bool has_payload;
    bytes payload; // `length` bytes; empty without a payload
    bool expects_reply;
    uint32_t length;
    std::optional<std::string> user;
    uint32_t session;
    uint32_t service;
    const mts_queue *queue;
    uint32_t wait_class;

    // The VSAN number in a VSAN request, -1 in anything else.
    int64_t vsan() const;
};

// What the manager does with one request.
struct scripted_reply {
    uint32_t status = 0;
    int error_number = 0; // what errno is set to, 0 to leave it
    std::optional<bytes> data;
};

// The manager's answers to one kind of request, in order; the last one repeats.
class reply_script {
  public:
    reply_script &reply(bytes data) { return add({0, 0, std::move(data)}); }
    reply_script &reply(const vsan_row &row) { return reply(row_reply(row)); }
    reply_script &no_data() { return add({0, 0, std::nullopt}); }
    reply_script &status(uint32_t status) { return add({status, 0, std::nullopt}); }
    reply_script &status_with_data(uint32_t status, bytes data) { return add({status, 0, std::move(data)}); }
    reply_script &fails(int error_number) { return add({UINT32_MAX, error_number, std::nullopt}); }

    scripted_reply next();

  private:
    reply_script &add(scripted_reply answer) {
        answers.push_back(std::move(answer));
        return *this;
    }

    std::deque<scripted_reply> answers;
};

// One line of the event history.
struct trace_line {
    uint32_t trace_class;
    std::string text;
};

// One call of snmp_get_allowed_vsans_subtree.
struct allowed_vsans_call {
    uint32_t size;
    bool bitmap_is_zero;
    std::vector<oid> name;
    int pdu_type;
};

// One call of indxobj_create.
struct list_creation {
    const indxobj_list *list;
    int base;
    int unique;
    indxobj_comparator comparator;
    int ordered;
};

// One call of snmp_is_vsan_allowed_subtree.
struct allowed_vsan_call {
    uint32_t vsan;
    std::vector<oid> name;
    int pdu_type;
};

// One call of intf_chk_vsan_role_allowed.
struct role_check {
    uint32_t if_index;
    int operation;
    uint32_t list_size;
};

// One call of pm_cmi_get_active_vsan_port_membership.
struct membership_request {
    const mts_queue *queue;
    uint32_t kind;
    uint32_t vsan;
    uint32_t if_index;
    uint8_t is_static;
    std::optional<std::string> user;
    uint32_t session;
    uint32_t wait_class;
};

// What the port manager answers to a request; the pair counts for status 0 only.
struct membership_reply {
    uint32_t status = 0;
    uint32_t vsan = 0;
    uint32_t if_index = 0;
    uint8_t is_static = 0;
    int error_number = 0; // what errno is set to, 0 to leave it
};

// An event message; without a payload it has none at all.
struct mts_message {
    std::optional<bytes> payload;
};

// What the VSAN library makes of an event. An attribute that is not listed cannot be
// read. Values as the callers see them once they have converted them.
struct scripted_vsan_event {
    uint32_t status = 0;
    uint32_t condition = 0;
    uint32_t vsan = 0;
    uint32_t is_created = 0;
    std::map<uint32_t, uint32_t> attributes;
};

// One call of vsan_range_config_change_get_attr_values.
struct attribute_read {
    const void *payload;
    uint32_t size;
    uint32_t key;
    std::optional<int> send; // the notification's send flag meanwhile, if it is known
};

// What a list does with a key that it already holds.
enum class present_key { is_refused, is_replaced, is_doubled };

class scripted_platform {
  public:
    // Forgets everything that was recorded and scripted. The number of the PDU in
    // progress only ever grows, as it does in an agent.
    void reset();

    // Starts the next PDU.
    void next_pdu() { ++pdu; }

    // Scripts the answers to a request, instead of those of `vsans`.
    reply_script &on(uint32_t opcode, uint32_t kind) { return scripts[{opcode, kind}]; }

    // The VSAN that a lookup of the table asks for or lands on; used where nothing is
    // scripted for opcode 149. Keyed by number.
    std::map<uint32_t, vsan_row> vsans;
    void add_vsan(uint32_t index);
    void add_vsans(std::initializer_list<uint32_t> list);

    // Answers every request instead of all of the above when set.
    std::function<scripted_reply(const sent_request &)> manager;

    // Restricts the user of the PDU to some VSANs.
    void restrict_to(std::set<uint32_t> allowed) { allowed_vsans = std::move(allowed); }
    std::optional<std::set<uint32_t>> allowed_vsans;
    int restriction_result = 1; // of snmp_get_allowed_vsans_subtree for such a user
    int permitted_result = 1;   // how a VSAN is said to be permitted, or one to follow; not 0

    // What the role test answers for an interface, 0 where nothing is listed.
    std::map<uint32_t, int> barred_interfaces;

    // The port manager's pairs of VSAN and ifIndex, with their static flag. Its answers
    // come from them in OID order unless `port_manager` is set.
    std::optional<std::map<std::pair<uint32_t, uint32_t>, uint8_t>> memberships;
    std::function<membership_reply(const membership_request &)> port_manager;

    // What the VSAN library makes of the next events; it decodes nothing otherwise.
    std::optional<scripted_vsan_event> vsan_event;

    // The send flag of the notification that is being made.
    const int *send_flag = nullptr;

    // Who asks; told for session 0 only.
    std::optional<std::string> user;
    uint32_t session = 0;
    uint32_t pdu = 1;

    // The distribution service: what it says, and the status of each call.
    uint32_t tdx_enabled = 0;
    uint32_t tdx_show_run = 0;
    uint32_t tdx_enabled_status = 0;
    uint32_t tdx_show_run_status = 0;

    // Trace filters: every class is wanted unless it is listed here.
    std::set<uint32_t> history_unwanted;
    std::set<uint32_t> debug_unwanted;

    // Results of the next list creations; success when there is none left.
    std::deque<int> list_results;

    // Results of the next additions to a list; success when there is none left.
    std::deque<int> add_results;
    present_key list_reading = present_key::is_doubled;

    // Error texts far longer than anything that takes them.
    bool long_error_texts = false;

    // What was recorded.
    std::vector<sent_request> requests;
    std::vector<trace_line> history;
    std::set<std::string> history_texts; // each text once, for the rules of all lines
    std::vector<trace_line> debug;
    std::vector<std::string> debug_names;
    std::vector<uint32_t> history_modules;
    std::vector<std::pair<uint32_t, uint32_t>> errors_set;
    std::vector<std::pair<uint32_t, std::string>> errors_reported; // log_snmp_error
    std::vector<int> heartbeats;
    std::vector<allowed_vsans_call> allowed_calls;
    std::vector<allowed_vsan_call> vsan_checks;
    std::vector<role_check> role_checks;
    std::vector<membership_request> membership_requests;
    std::vector<attribute_read> attribute_reads;
    std::vector<size_t> binding_lengths; // of the values passed to build_varbind
    std::vector<snmp_error_record> error_records;
    std::vector<uint32_t> list_sizes_passed; // by value, to the two list functions
    std::vector<std::string> tdx_features;
    std::vector<list_creation> lists_created;
    std::map<uint32_t, notification_callback> notifications;
    std::vector<std::string> journal; // calls in order, one short text each
    unsigned malformed_history_records = 0;
    unsigned unscripted_requests = 0;

    // Reply buffers that the module has not released yet.
    std::set<void *> replies_held;
    unsigned replies_made = 0;

    // The journal's entries that begin with `prefix`.
    std::vector<std::string> journal_of(const std::string &prefix) const;

    // VSAN numbers of the table requests sent, in order.
    std::vector<int64_t> vsans_asked() const;

    // Called by the platform functions.
    scripted_reply answer(const sent_request &request);
    membership_reply answer(const membership_request &request);
    void *make_reply(const bytes &data);

  private:
    std::map<std::pair<uint32_t, uint32_t>, reply_script> scripts;
};

extern scripted_platform platform;

// The data on a list, in the order in which it was added.
std::vector<const void *> data_on(const indxobj_list &list);

// A search that fills the journal beyond this does not end by itself; it is then told
// that no further VSAN is permitted. Four calls for each VSAN is the most that one takes.
constexpr size_t longest_journal = 20000;

// A status that nobody gives a meaning to, with the text that goes with it.
constexpr uint32_t some_failure = 0x40190077u;
std::string failure_text(uint32_t status);

#endif
