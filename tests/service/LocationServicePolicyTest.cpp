// The facade's operations as a table: what each reports without a connection
// and which alarm it raises when the database fails it; and the configuration
// and policy answers read from the rows.
#include "Provisioning.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"
#include "ServiceFixture.h"
#include "SipEventAggregator.h"
#include "SubscriberRecord.h"
#include "TraceCapture.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

using velm::DatabaseResult;
using velm::LocationService;

namespace {

const int KEY = 100;

// Where the operations write their answers.
struct Answers {
    int number = -1;
    int other = -1;
    bool flag = false;
    std::string text = "kept";
    std::string more;
    velm::SubscriberRecord subscriber;
    std::vector<velm::ContactRecord> contacts;
    std::vector<velm::TrustedHostRecord> hosts;
    std::vector<velm::ProxyConfig> items;
    std::vector<velm::remoteFilter> filters;
    std::vector<velm::SipEventAggregator> aggregators;
    velm::SipEventAggregator aggregator;
};

struct Operation {
    const char* name;
    // The statements that make it fail; empty: it fails as it is; null: it
    // is only called without a connection.
    const char* breakWith;
    DatabaseResult::status status;
    // The alarm it raises then, before the error message when it ends in a
    // space; SAME: "database failure - <name>. "; null: none.
    const char* alarm;
    std::function<DatabaseResult(LocationService&, Answers&)> call;
};

void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.name;
}

const DatabaseResult::status QUERY = DatabaseResult::QUERY_ERROR;
const char* const SETTINGS_LOST = "ALTER TABLE system_parameters RENAME TO lost";
const char* const PUBLIC_ADDRESS_LOST = "ALTER TABLE public_address RENAME TO lost";
const char* const VISITORS_LOST = "ALTER TABLE replica_extra RENAME TO lost";
const char* const SAME = "";
using S = LocationService;
using A = Answers;

const std::vector<Operation> OPERATIONS = {
    {"executeCmd", "", QUERY, SAME, [](S& s, A&) { return s.executeCmd("SELECT nothing FROM nowhere"); }},
    {"queryTrustedHosts", "ALTER TABLE trusted_host RENAME TO lost", QUERY, SAME,
     [](S& s, A& a) { return s.queryTrustedHosts(a.hosts); }},
    {"getQoS", SETTINGS_LOST, QUERY, "database failure -  getQoS. ", [](S& s, A& a) { return s.getQoS(&a.number); }},
    {"getNodeType", SETTINGS_LOST, QUERY, SAME, [](S& s, A& a) { return s.getNodeType(a.more); }},
    {"getProxyConfig", SETTINGS_LOST, QUERY, SAME, [](S& s, A& a) { return s.getProxyConfig("proxy1", a.items); }},
    // The credential statements never look at whether the server rejected
    // them: a lost table reads as no rows.
    {"getSystemUserAndPasswordValues", SETTINGS_LOST, DatabaseResult::NOTFOUND, nullptr,
     [](S& s, A& a) { return s.getSystemUserAndPasswordValues(a.more, a.more); }},
    // A failed read leaves the answer alone.
    {"checkInboundDomainAccess", "ALTER TABLE domain_access RENAME TO lost", QUERY, SAME,
     [](S& s, A& a) { return s.checkInboundDomainAccess("example.org", a.flag); }},
    {"isEmergencyContact", "ALTER TABLE emergency_call_ids RENAME TO lost", QUERY, SAME,
     [](S& s, A& a) { return s.isEmergencyContact("911", a.flag); }},
    // Reported as a lost connection, as it always has been.
    {"getRemoteFilters", "ALTER TABLE persistent_filter RENAME TO lost", DatabaseResult::CONNECTION_ERROR, SAME,
     [](S& s, A& a) { return s.getRemoteFilters(&a.filters, &a.more); }},
    {"deleteOldEventNotifyRows", "ALTER TABLE event_notify RENAME TO lost", QUERY, SAME,
     [](S& s, A&) { return s.deleteOldEventNotifyRows(); }},
    {"getSipEventAggregators", "ALTER TABLE sip_event_aggregator RENAME TO lost", QUERY, SAME,
     [](S& s, A& a) { return s.getSipEventAggregators(a.aggregators); }},
    {"getSipEventAggregator", "", QUERY, SAME, [](S& s, A& a) { return s.getSipEventAggregator("5", a.aggregator); }},
    {"isLocalUser", "ALTER TABLE velm_users RENAME TO lost", QUERY, "database failure - isLocalUser_1. ",
     [](S& s, A&) { return s.isLocalUser("alice", "example.com"); }},
    {"isLocalUserUri", nullptr, QUERY, nullptr,
     [](S& s, A&) { return s.isLocalUser(std::string("sip:alice@example.com")); }},
    {"lookupSubscriberHome", "ALTER TABLE velm_users RENAME TO lost", QUERY, "database failure - lookupSubscriber_2. ",
     [](S& s, A& a) { return s.lookupSubscriber("alice", "example.com", a.subscriber); }},
    {"lookupSubscriber", "ALTER TABLE subscriber RENAME TO lost", DatabaseResult::CONNECTION_ERROR,
     "database failure - lookupSubscriber_1",
     [](S& s, A& a) { return s.lookupSubscriber("alice", "example.com", a.subscriber); }},
    {"getIdentityOfKey", "ALTER TABLE identity RENAME TO lost", QUERY, "database failure - getIdentity_2. ",
     [](S& s, A& a) { return s.getIdentity(KEY, a.text); }},
    {"getIdentityAddress", PUBLIC_ADDRESS_LOST, QUERY, "database failure - getIdentity_1. ",
     [](S& s, A& a) { return s.getIdentity(KEY, a.text); }},
    {"getIdentityOfUser", nullptr, QUERY, nullptr,
     [](S& s, A& a) { return s.getIdentity("alice", "example.com", a.text); }},
    {"getPublicAddressKeyCSID", PUBLIC_ADDRESS_LOST, QUERY, SAME,
     [](S& s, A& a) { return s.getPublicAddressKeyCSID("alice", "example.com", a.number, a.other); }},
    {"getPublicAddressKey", nullptr, QUERY, nullptr,
     [](S& s, A& a) { return s.getPublicAddressKey("sip:alice@example.com", a.number); }},
    {"getPublicAddress", PUBLIC_ADDRESS_LOST, QUERY, SAME,
     [](S& s, A& a) { return s.getPublicAddress(KEY, a.more, a.more); }},
    {"isSubscriberHome", VISITORS_LOST, QUERY, SAME, [](S& s, A& a) { return s.isSubscriberHome(1, a.flag); }},
    {"addVisitingUser", VISITORS_LOST, QUERY, SAME, [](S& s, A&) { return s.addVisitingUser(1); }},
    {"deleteVisitingUser", VISITORS_LOST, QUERY, SAME, [](S& s, A&) { return s.deleteVisitingUser(1); }},
    {"getHomeNode_id", "ALTER TABLE local_parameters RENAME TO lost", QUERY, SAME,
     [](S& s, A& a) { return s.getHomeNode_id(a.number); }},
    {"removeExpiredVisitingUsers", VISITORS_LOST, QUERY, "database failure - removeExpiredVisitingUsers_1. ",
     [](S& s, A&) { return s.removeExpiredVisitingUsers(); }},
    {"updateTimer", nullptr, QUERY, nullptr, [](S& s, A&) { return s.updateTimer("alice", "example.com", 60); }},
    {"getDefaultRoute", "DROP TABLE system_parameters", QUERY, SAME,
     [](S& s, A& a) { return s.getDefaultRoute(a.more, a.flag, a.contacts); }},
    {"getOutboundRoute", "DROP TABLE system_parameters", QUERY, "database failure - getOutboundRoute_1. ",
     [](S& s, A& a) { return s.getOutboundRoute("sip:bob@example.com", false, a.more, a.flag); }},
    {"lookupContactsOfUri", nullptr, QUERY, nullptr,
     [](S& s, A& a) {
         s.setPrimaryDomain("example.com");
         return s.lookupContacts("sip:confsvr@example.com", a.more, a.flag, a.contacts, nullptr);
     }},
    {"lookupContactsOfUser", nullptr, QUERY, nullptr,
     [](S& s, A& a) {
         return s.lookupContacts("alice", "example.com", "sip:alice@example.com", a.more, a.flag, a.contacts);
     }},
    {"lookupContactsOfKey", nullptr, QUERY, nullptr,
     [](S& s, A& a) { return s.lookupContacts(KEY, a.more, a.flag, a.contacts); }},
    {"lookupContactsNoCache", nullptr, QUERY, nullptr,
     [](S& s, A& a) { return s.lookupContactsNoCache(KEY, a.more, a.flag, a.contacts, a.other); }},
};

std::vector<Operation> failing() {
    std::vector<Operation> list;
    for (const Operation& operation : OPERATIONS)
        if (operation.breakWith != nullptr)
            list.push_back(operation);
    return list;
}

std::string operationName(const testing::TestParamInfo<Operation>& info) {
    return info.param.name;
}

// alice@example.com (sid 1, key KEY) on node 7, homed on node 8.
class Operations : public velmtest::ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(1);
        provisioning.contactSet(10, 1);
        provisioning.publicAddress(KEY, "alice", "example.com", 10, true);
        db.admin().exec("INSERT INTO identity VALUES (1, 'sip:alice@example.com', 'Alice A')");
        db.admin().exec("INSERT INTO velm_users (sid, node_id) VALUES (1, 8)");
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '7')");
        db.admin().exec("INSERT INTO replica_extra (packet_type, id, expires) VALUES ('subscriber', 1, 1)");
    }
};

class DatabaseFailure : public Operations, public testing::WithParamInterface<Operation> {};

class WithoutConnection : public testing::TestWithParam<Operation> {
protected:
    velmtest::AlarmCapture alarms;
};

} // namespace

TEST_P(DatabaseFailure, RaisesTheOperationsAlarm) {
    const Operation& operation = GetParam();
    if (*operation.breakWith != '\0')
        db.admin().exec(operation.breakWith);
    Answers answers;
    DatabaseResult result = operation.call(service, answers);
    EXPECT_FALSE(answers.flag);
    EXPECT_EQ(operation.status, result.m_status) << result.getErrorMessage();
    std::vector<std::string> expected;
    if (operation.alarm != nullptr) {
        std::string alarm =
            *operation.alarm != '\0' ? operation.alarm : "database failure - " + std::string(operation.name) + ". ";
        expected.push_back(alarm.back() == ' ' ? alarm + result.getErrorMessage() : alarm);
    }
    EXPECT_EQ(expected, alarms.texts("zuVELMProxyDBAccessFailed"));
    EXPECT_EQ(expected.size(), alarms.alarms().size());
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, DatabaseFailure, testing::ValuesIn(failing()), operationName);

TEST_P(WithoutConnection, NothingIsAskedAndNothingAlarmed) {
    LocationService unconnected;
    Answers answers;
    DatabaseResult result = GetParam().call(unconnected, answers);
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_TRUE(alarms.alarms().empty());
    EXPECT_EQ(-1, answers.number);
    EXPECT_EQ(-1, answers.other);
    EXPECT_EQ("kept", answers.text);
    EXPECT_EQ(-1, answers.subscriber.sid());
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, WithoutConnection, testing::ValuesIn(OPERATIONS), operationName);

TEST_F(Operations, SettingsAreReadAndMissingOnesNotFoundWithoutAnAlarm) {
    int qos = -7;
    std::string nodeType = "stale", user, password;
    EXPECT_TRUE(service.getQoS(&qos).notFound());
    EXPECT_EQ(-7, qos);
    EXPECT_TRUE(service.getSystemUserAndPasswordValues(user, password).notFound());
    EXPECT_TRUE(service.getNodeType(nodeType).notFound());
    // Settings without a node type are not found either.
    nodeType = "stale";
    parameter("parent", "p");
    EXPECT_TRUE(service.getNodeType(nodeType).notFound());
    EXPECT_EQ("", nodeType);
    EXPECT_TRUE(alarms.alarms().empty());

    for (const char* row : {"qos=46", "node_type=edge", "EdgeUsername=edge-admin", "EdgePassword=edge-secret",
                            "HomeUsername=home-admin", "HomePassword=home-secret"}) {
        std::string setting = row;
        parameter(setting.substr(0, setting.find('=')), setting.substr(setting.find('=') + 1));
    }
    ASSERT_TRUE(service.getQoS(&qos).okay());
    EXPECT_EQ(46, qos);
    ASSERT_TRUE(service.getNodeType(nodeType).okay());
    EXPECT_EQ("edge", nodeType);
    ASSERT_TRUE(service.getSystemUserAndPasswordValues(user, password).okay());
    EXPECT_EQ("edge-admin", user);
    EXPECT_EQ("edge-secret", password);
}

namespace {

struct BadCall {
    const char* name;
    // The message; null: not checked; ending in a space: its start.
    const char* message;
    // What the flag answer holds afterwards; it starts true.
    bool flag;
    std::function<DatabaseResult(LocationService&, Answers&)> call;
};

const BadCall BAD_CALLS[] = {
    {"getQoS", nullptr, true, [](S& s, A&) { return s.getQoS(nullptr); }},
    {"checkInboundDomainAccess", nullptr, true, [](S& s, A& a) { return s.checkInboundDomainAccess(nullptr, a.flag); }},
    {"isEmergencyContact", nullptr, true, [](S& s, A& a) { return s.isEmergencyContact(nullptr, a.flag); }},
    {"getRemoteFiltersList", nullptr, true, [](S& s, A& a) { return s.getRemoteFilters(nullptr, &a.more); }},
    {"getRemoteFiltersDestination", nullptr, true, [](S& s, A& a) { return s.getRemoteFilters(&a.filters, nullptr); }},
    {"isSubscriberHome", "isSubscriberHome: sid 0", false, [](S& s, A& a) { return s.isSubscriberHome(0, a.flag); }},
    {"updateTimer", nullptr, true, [](S& s, A&) { return s.updateTimer(nullptr, "example.com", 3600); }},
    {"getPublicAddressKey", nullptr, true,
     [](S& s, A& a) { return s.getPublicAddressKey(nullptr, "example.com", a.number); }},
    {"getPublicAddressKeyCSID", nullptr, true,
     [](S& s, A& a) { return s.getPublicAddressKeyCSID("alice", nullptr, a.number, a.other); }},
    {"isLocalUser", nullptr, true, [](S& s, A&) { return s.isLocalUser(nullptr, "example.com"); }},
    {"lookupSubscriber", nullptr, true, [](S& s, A& a) { return s.lookupSubscriber("alice", nullptr, a.subscriber); }},
    {"getIdentity", nullptr, true, [](S& s, A& a) { return s.getIdentity(nullptr, "example.com", a.text); }},
    {"getOutboundRouteNull", "getOutboundRoute: null outbound uri", true,
     [](S& s, A& a) { return s.getOutboundRoute(nullptr, false, a.text, a.flag); }},
    {"getOutboundRouteInvalid", "getOutboundRoute: invalid outbound uri: ", true,
     [](S& s, A& a) { return s.getOutboundRoute("mailto:bob@example.com", false, a.text, a.flag); }},
};

} // namespace

TEST_F(Operations, BadArgumentsAreRefusedAndLeaveTheAnswersAlone) {
    parameter("outbound_allowed_external", "t");
    for (const BadCall& c : BAD_CALLS) {
        Answers answers;
        answers.flag = true;
        DatabaseResult result = c.call(service, answers);
        EXPECT_TRUE(result.badParameter()) << c.name;
        if (c.message != nullptr) {
            const std::string message = c.message, got = result.getErrorMessage();
            EXPECT_EQ(message, message.back() == ' ' ? got.substr(0, message.size()) : got) << c.name;
        }
        EXPECT_EQ(c.flag, answers.flag) << c.name;
        EXPECT_EQ(-1, answers.number) << c.name;
        EXPECT_EQ(-1, answers.other) << c.name;
        EXPECT_EQ("kept", answers.text) << c.name;
        EXPECT_EQ(-1, answers.subscriber.sid()) << c.name;
    }
    EXPECT_TRUE(alarms.alarms().empty());
}

namespace {

struct Rule {
    const char* direction;
    const char* domain;
    const char* action;
};

struct DomainCase {
    const char* name;
    std::vector<Rule> rules; // in qvalue order
    bool allowed;
};

class DomainAccessDecision : public velmtest::ServiceTest, public testing::WithParamInterface<DomainCase> {};

} // namespace

TEST_P(DomainAccessDecision, DenyWinsForTheExactDomainInbound) {
    const DomainCase& c = GetParam();
    for (size_t at = 0; at < c.rules.size(); ++at)
        db.admin().exec(
            std::string("INSERT INTO domain_access (direction, sip_domain, domain_action, qvalue) VALUES ('") +
            c.rules[at].direction + "', '" + c.rules[at].domain + "', '" + c.rules[at].action + "', " +
            std::to_string(at + 1) + ")");
    bool allowed = !c.allowed;
    ASSERT_TRUE(service.checkInboundDomainAccess("example.org", allowed).okay());
    EXPECT_EQ(c.allowed, allowed);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, DomainAccessDecision,
    testing::Values(DomainCase{"NoRules", {}, true},
                    DomainCase{"AllowThenDeny", {{"i", "example.org", "a"}, {"*", "example.org", "d"}}, false},
                    DomainCase{"DenyThenAllow", {{"*", "example.org", "d"}, {"i", "example.org", "a"}}, false},
                    DomainCase{"OutboundIgnored", {{"o", "example.org", "d"}}, true},
                    DomainCase{"OtherActionAllows", {{"i", "example.org", "x"}}, true},
                    DomainCase{"WholeNameOnly", {{"i", "sub.example.org", "d"}, {"i", "example.or", "d"}}, true},
                    DomainCase{"CaseCounts", {{"i", "Example.org", "d"}}, true}),
    [](const testing::TestParamInfo<DomainCase>& info) { return std::string(info.param.name); });

TEST_F(Operations, EmergencyContactsAreExactIdsReadOnEveryCall) {
    bool emergency = true;
    ASSERT_TRUE(service.isEmergencyContact("911", emergency).okay());
    EXPECT_FALSE(emergency);
    db.admin().exec("INSERT INTO emergency_call_ids (address) VALUES ('911'), ('sip:112@example.org')");
    for (const auto& c : std::vector<std::pair<std::string, bool>>{{"911", true},
                                                                   {"sip:112@example.org", true},
                                                                   {"9110", false},
                                                                   {"SIP:112@example.org", false},
                                                                   {"", false}}) {
        emergency = !c.second;
        ASSERT_TRUE(service.isEmergencyContact(c.first, emergency).okay()) << c.first;
        EXPECT_EQ(c.second, emergency) << c.first;
    }
}

TEST_F(Operations, RemoteFiltersNeedADestination) {
    db.admin().exec("UPDATE local_parameters SET value = '3' WHERE name = 'replica_id'");
    db.admin().exec("INSERT INTO persistent_filter (fid, trid, label) VALUES (7, 70, 'calls'), (8, 80, 'other node')");
    db.admin().exec("INSERT INTO nodes_to_filter VALUES (7, '3'), (8, '4')");
    // No destination configured at all: nothing to send traces to.
    std::vector<velm::remoteFilter> filters;
    std::string destination;
    EXPECT_TRUE(service.getRemoteFilters(&filters, &destination).notFound());

    // An empty destination: the filters come back, the status stays okay.
    parameter("TraceLogger", "");
    filters.clear();
    DatabaseResult result = service.getRemoteFilters(&filters, &destination);
    EXPECT_TRUE(result.okay());
    EXPECT_EQ("invalid parameter getRemoteFilters.", result.getErrorMessage());
    ASSERT_EQ(1u, filters.size());
    EXPECT_EQ(7, filters[0].fid());

    db.admin().exec("UPDATE system_parameters SET value = 'udp:192.0.2.9:5060' WHERE name = 'TraceLogger'");
    filters.clear();
    result = service.getRemoteFilters(&filters, &destination);
    EXPECT_TRUE(result.okay());
    EXPECT_EQ("", result.getErrorMessage());
    EXPECT_EQ("udp:192.0.2.9:5060", destination);
    ASSERT_EQ(1u, filters.size());
    EXPECT_EQ("calls", filters[0].label());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Operations, AnEmptyAggregatorIdAsksNothing) {
    db.admin().exec("ALTER TABLE sip_event_aggregator RENAME TO lost");
    velm::SipEventAggregator aggregator;
    EXPECT_TRUE(service.getSipEventAggregator("", aggregator).okay());
    EXPECT_EQ(-1, aggregator.id());
    EXPECT_TRUE(alarms.alarms().empty());
}
