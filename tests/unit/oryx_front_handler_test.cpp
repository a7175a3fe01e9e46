// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"

#include <algorithm>

#include "context.h"
#include "front_handler.h"
#include "netsnmpagent_oryx.h"
#include "requester.h"

namespace {

const char FRONT[] = "netsnmpagent_oryx";

long front_handlers_in(const netsnmp_handler_registration &registration) {
    const std::vector<std::string> chain = handler_chain(registration);
    return std::count(chain.begin(), chain.end(), FRONT);
}

int answer_nothing(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *,
                   netsnmp_request_info *) {
    return SNMP_ERR_NOERROR;
}

// An object registered by something else than the module, in a context.
class OtherObject {
  public:
    explicit OtherObject(const Oid &name, const char *context = "") : name_(name), context_(context) {
        registration_ =
            netsnmp_create_handler_registration("other", answer_nothing, name.data(), name.size(), HANDLER_CAN_RONLY);
        if (!context_.empty()) {
            registration_->contextName = strdup(context);
        }
        EXPECT_EQ(netsnmp_register_handler(registration_), MIB_REGISTERED_OK);
    }
    // Not netsnmp_unregister_handler: it goes on to read the context's name from the
    // registration that it has released.
    ~OtherObject() { unregister_mib_context(name_.data(), name_.size(), DEFAULT_MIB_PRIORITY, 0, 0, context_.c_str()); }
    const netsnmp_handler_registration &registration() const { return *registration_; }

  private:
    Oid name_;
    std::string context_;
    netsnmp_handler_registration *registration_;
};

class FrontHandlerTest : public OryxTest {
  protected:
    void TearDown() override { oryx::front_handler_start(); }
};

TEST_F(FrontHandlerTest, StandsFirstAndOnceBeforeEveryObjectUnderTheRoot) {
    FakeObjects objects;
    for (const Oid &column : {NAME_COLUMN, STATE_COLUMN}) {
        const netsnmp_handler_registration &registration = *registration_of(column);
        EXPECT_EQ(handler_chain(registration).front(), FRONT);
        EXPECT_EQ(front_handlers_in(registration), 1);
    }
}

TEST_F(FrontHandlerTest, LeavesOtherSubtreesAlone) {
    Oid beside = under_root({});
    ++beside.back();
    const Oid above(beside.begin(), beside.end() - 1);
    OtherObject neighbour(beside), elsewhere({1, 3, 6, 1, 4, 1, 99999999, 1});
    FakeObjects objects;
    EXPECT_EQ(front_handlers_in(neighbour.registration()), 0);
    EXPECT_EQ(front_handlers_in(elsewhere.registration()), 0);
}

TEST_F(FrontHandlerTest, StandsBeforeObjectsOfEveryContext) {
    OtherObject object(under_root({7}), "lab");
    EXPECT_EQ(front_handlers_in(object.registration()), 1);
}

TEST_F(FrontHandlerTest, StandsBeforeEveryPieceOfASplitRegistration) {
    OtherObject inner(under_root({8, 5}));
    OtherObject outer(under_root({8}));
    for (const Oid &suffix : {Oid{8, 1}, Oid{8, 5}, Oid{8, 9}}) {
        const netsnmp_handler_registration *registration = registration_of(under_root(suffix));
        ASSERT_NE(registration, nullptr);
        EXPECT_EQ(front_handlers_in(*registration), 1) << suffix.back();
    }
}

TEST_F(FrontHandlerTest, IsGoneEverywhereAfterItStopped) {
    FakeObjects objects;
    OtherObject object(under_root({7}), "lab");
    oryx::front_handler_stop();
    EXPECT_EQ(front_handlers_in(*registration_of(NAME_COLUMN)), 0);
    EXPECT_EQ(front_handlers_in(*registration_of(STATE_COLUMN)), 0);
    EXPECT_EQ(front_handlers_in(object.registration()), 0);
    // The chain behind it still answers.
    Pdu pdu = Pdu::v2c("public");
    pdu.add(NAME_COLUMN);
    int reads = 0;
    objects.on_read = [&](oid *, size_t *, int) { ++reads; };
    pdu.call(MODE_GETBULK);
    EXPECT_EQ(reads, 1);
}

TEST_F(FrontHandlerTest, StoppedItStaysOutOfNewObjects) {
    oryx::front_handler_stop();
    FakeObjects objects;
    EXPECT_EQ(front_handlers_in(*registration_of(NAME_COLUMN)), 0);
}

TEST_F(FrontHandlerTest, StartedLateItStandsBeforeWhatIsThere) {
    oryx::front_handler_stop();
    FakeObjects objects;
    oryx::front_handler_start();
    EXPECT_EQ(handler_chain(*registration_of(NAME_COLUMN)).front(), FRONT);
    EXPECT_EQ(front_handlers_in(*registration_of(NAME_COLUMN)), 1);
}

// What an object elsewhere learns of who asks.
struct Requester {
    std::string user;
    uint32_t number;
};
Requester noted;

int note(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *, netsnmp_request_info *) {
    const char *user = get_snmp_username(0);
    noted = {user ? user : "nobody", get_pdu_reqid()};
    return SNMP_ERR_NOERROR;
}

TEST_F(FrontHandlerTest, ALibraryThatPutsTheRequesterInFrontOfItsOwnObjectsKnowsWhoAsks) {
    Oid name = {1, 3, 6, 1, 4, 1, 99999999, 2};
    netsnmp_handler_registration *registration =
        netsnmp_create_handler_registration("elsewhere", note, name.data(), name.size(), HANDLER_CAN_RONLY);
    ASSERT_EQ(oryx_note_requester(registration), 0);
    ASSERT_EQ(netsnmp_register_handler(registration), MIB_REGISTERED_OK);
    Pdu first = Pdu::v2c("public"), second = Pdu::v3("alice");
    first.add(name);
    second.add(name);
    first.call(MODE_GET);
    const Requester before = noted;
    EXPECT_EQ(before.user, "public");
    second.call(MODE_GET);
    EXPECT_EQ(noted.user, "alice");
    EXPECT_NE(noted.number, before.number);
    first.call(MODE_GET);
    EXPECT_EQ(noted.number, before.number);
    EXPECT_EQ(oryx::current_pdu(), nullptr);
    unregister_mib(name.data(), name.size());
}

TEST_F(FrontHandlerTest, StartingAndStoppingTwiceChangesNothing) {
    FakeObjects objects;
    oryx::front_handler_start();
    EXPECT_EQ(front_handlers_in(*registration_of(NAME_COLUMN)), 1);
    oryx::front_handler_stop();
    oryx::front_handler_stop();
    EXPECT_EQ(front_handlers_in(*registration_of(NAME_COLUMN)), 0);
}

} // namespace
