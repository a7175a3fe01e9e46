// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"

#include <cstdlib>

#include "agent_startup.h"
#include "oryx_fake_platform.h"

const Oid NAME_COLUMN = under_root({1, 1, 3, 1, 2});
const Oid STATE_COLUMN = under_root({1, 1, 3, 1, 4});
std::vector<std::string> agent_log;

namespace {

FakeObjects *objects = nullptr;

constexpr int MOST_VARBINDS = 8;

// Entries of the agent's library that its headers leave out.
extern "C" {
int handle_set_loop(netsnmp_agent_session *asp);
netsnmp_request_info *netsnmp_add_varbind_to_cache(netsnmp_agent_session *asp, int vbcount,
                                                   netsnmp_variable_list *varbind, netsnmp_subtree *subtree);
}

int write_fake(int action, u_char *, u_char, size_t, u_char *, oid *name, size_t length) {
    return objects->on_write ? objects->on_write(action, name, length) : SNMP_ERR_NOERROR;
}

u_char *read_fake(variable *, oid *name, size_t *length, int exact, size_t *value_length, WriteMethod **write_method) {
    static long value = 1;
    if (!objects->is_writable || objects->is_writable(name, *length)) {
        *write_method = write_fake;
    }
    *value_length = sizeof(value);
    if (objects->on_read) {
        objects->on_read(name, length, exact);
    }
    return reinterpret_cast<u_char *>(&value);
}

const variable7 FAKE_VARIABLES[] = {
    {1, ASN_INTEGER, NETSNMP_OLDAPI_RWRITE, read_fake, 5, {1, 1, 3, 1, 2}},
    {2, ASN_INTEGER, NETSNMP_OLDAPI_RWRITE, read_fake, 5, {1, 1, 3, 1, 4}},
};

int keep_line(netsnmp_log_handler *, int, const char *line) {
    agent_log.emplace_back(line);
    return 1;
}

class Agent : public testing::Environment {
  public:
    void SetUp() override {
        start_agent_without_files("oryx_test", keep_line);
        init_snmp("oryx_test");
    }
    void TearDown() override {
        snmp_shutdown("oryx_test");
        shutdown_agent();
        shutdown_snmp_logging();
    }
};

} // namespace

Oid under_root(const Oid &suffix) {
    Oid name = {1, 3, 6, 1, 4, 1, static_cast<oid>(VENDOR_PEN), 9, 282};
    name.insert(name.end(), suffix.begin(), suffix.end());
    return name;
}

size_t log_lines_with(const std::string &text) {
    size_t count = 0;
    for (const std::string &line : agent_log) {
        count += line.find(text) != std::string::npos;
    }
    return count;
}

FakeObjects::FakeObjects() {
    objects = this;
    Oid root = under_root({});
    EXPECT_EQ(register_mib("fake_objects", reinterpret_cast<const variable *>(FAKE_VARIABLES), sizeof(variable7), 2,
                           root.data(), root.size()),
              MIB_REGISTERED_OK);
}

FakeObjects::~FakeObjects() {
    for (Oid column : {NAME_COLUMN, STATE_COLUMN}) {
        unregister_mib(column.data(), column.size());
    }
    objects = nullptr;
}

netsnmp_handler_registration *registration_of(const Oid &name, const char *context) {
    const netsnmp_subtree *subtree = netsnmp_subtree_find(name.data(), name.size(), nullptr, context);
    return subtree ? subtree->reginfo : nullptr;
}

std::vector<std::string> handler_chain(const netsnmp_handler_registration &registration) {
    std::vector<std::string> names;
    for (const netsnmp_mib_handler *handler = registration.handler; handler; handler = handler->next) {
        names.emplace_back(handler->handler_name);
    }
    return names;
}

Pdu::Pdu(int version, const std::string &user) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    pdu->version = version;
    if (version == SNMP_VERSION_3) {
        pdu->securityName = strdup(user.c_str());
        pdu->securityNameLen = user.size();
    } else if (version == SNMP_VERSION_1 || version == SNMP_VERSION_2c) {
        pdu->community = static_cast<u_char *>(netsnmp_memdup(user.data(), user.size()));
        pdu->community_len = user.size();
    }
    asp_ = init_agent_snmp_session(&session_, pdu);
    snmp_free_pdu(pdu);
    asp_->reqinfo->asp = asp_;
    asp_->requests = static_cast<netsnmp_request_info *>(calloc(MOST_VARBINDS, sizeof(netsnmp_request_info)));
    asp_->vbcount = 0;
}

Pdu::~Pdu() {
    free_agent_snmp_session(asp_);
}

Pdu &Pdu::session(long id) {
    session_.sessid = id;
    return *this;
}

int Pdu::add(const Oid &name) {
    const int number = asp_->vbcount++;
    const long value = 1;
    netsnmp_request_info &request = asp_->requests[number];
    request.requestvb =
        snmp_varlist_add_variable(&asp_->pdu->variables, name.data(), name.size(), ASN_INTEGER, &value, sizeof(value));
    request.agent_req_info = asp_->reqinfo;
    request.index = number + 1;
    if (number > 0) {
        asp_->requests[number - 1].next = &request;
        request.prev = &asp_->requests[number - 1];
    }
    return number;
}

int Pdu::call(int mode) {
    asp_->mode = mode;
    asp_->reqinfo->mode = mode;
    netsnmp_handler_registration *registration = registration_of(name(0));
    if (!registration) {
        return SNMP_ERR_GENERR;
    }
    return netsnmp_call_handlers(registration, asp_->reqinfo, asp_->requests);
}

void Pdu::sort_by_registration() {
    asp_->pdu->command = SNMP_MSG_SET;
    int number = 0;
    for (netsnmp_variable_list *varbind = asp_->pdu->variables; varbind; varbind = varbind->next_variable) {
        netsnmp_add_varbind_to_cache(asp_, ++number, varbind,
                                     netsnmp_subtree_find(varbind->name, varbind->name_length, nullptr, ""));
    }
}

int Pdu::set() {
    sort_by_registration();
    asp_->mode = MODE_SET_BEGIN;
    return handle_set_loop(asp_);
}

Oid Pdu::name(int number) const {
    const netsnmp_variable_list *varbind = asp_->requests[number].requestvb;
    return Oid(varbind->name, varbind->name + varbind->name_length);
}

void agent_turn() {
    agent_check_and_process(1);
}

void agent_poll() {
    agent_check_and_process(0);
}

void OryxTest::SetUp() {
    reset_fake_switch();
    agent_log.clear();
}

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new Agent);
    return RUN_ALL_TESTS();
}
