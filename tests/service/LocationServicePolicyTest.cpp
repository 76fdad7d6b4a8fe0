// The configuration and policy answers of the facade: the decisions they make
// from the rows, and how they report a database that failed.
#include "AlarmCapture.h"
#include "LocationService.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"
#include "SipEventAggregator.h"
#include "TestServer.h"
#include "TraceCapture.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

using velm::DatabaseResult;
using velm::LocationService;
using velmtest::TestDatabase;

namespace {

class Accessors : public ::testing::Test {
protected:
    void SetUp() override {
        DatabaseResult connected = service.connect(db.name().c_str(), "velm", "pw");
        ASSERT_TRUE(connected.okay()) << connected.getErrorMessage();
    }

    void parameter(const std::string& name, const std::string& value) {
        db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', '" + name + "', " + value + ")");
    }

    TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
};

struct Accessor {
    const char* name;
    // The table whose loss makes the accessor fail; empty when it fails anyway.
    const char* table;
    // Null when the loss is not found rather than a failure.
    const char* alarmPrefix;
    std::function<DatabaseResult(LocationService&)> call;
};

const Accessor ACCESSORS[] = {
    {"queryTrustedHosts", "trusted_host", "database failure - queryTrustedHosts. ",
     [](LocationService& s) {
         std::vector<velm::TrustedHostRecord> hosts;
         return s.queryTrustedHosts(hosts);
     }},
    {"getQoS", "system_parameters", "database failure -  getQoS. ", [](LocationService& s) {
         int qos;
         return s.getQoS(&qos);
     }},
    {"getNodeType", "system_parameters", "database failure - getNodeType. ",
     [](LocationService& s) {
         std::string nodeType;
         return s.getNodeType(nodeType);
     }},
    {"getProxyConfig", "system_parameters", "database failure - getProxyConfig. ",
     [](LocationService& s) {
         std::vector<velm::ProxyConfig> items;
         return s.getProxyConfig("proxy1", items);
     }},
    // The credential statements never look at whether the server rejected
    // them: a lost table reads as no rows.
    {"getSystemUserAndPasswordValues", "system_parameters", nullptr,
     [](LocationService& s) {
         std::string user;
         std::string password;
         return s.getSystemUserAndPasswordValues(user, password);
     }},
    {"checkInboundDomainAccess", "domain_access", "database failure - checkInboundDomainAccess. ",
     [](LocationService& s) {
         bool allowed;
         return s.checkInboundDomainAccess("example.org", allowed);
     }},
    {"isEmergencyContact", "emergency_call_ids", "database failure - isEmergencyContact. ",
     [](LocationService& s) {
         bool emergency;
         return s.isEmergencyContact("911", emergency);
     }},
    {"getRemoteFilters", "persistent_filter", "database failure - getRemoteFilters. ",
     [](LocationService& s) {
         std::vector<velm::remoteFilter> filters;
         std::string destination;
         return s.getRemoteFilters(&filters, &destination);
     }},
    {"deleteOldEventNotifyRows", "event_notify", "database failure - deleteOldEventNotifyRows. ",
     [](LocationService& s) { return s.deleteOldEventNotifyRows(); }},
    {"getSipEventAggregators", "sip_event_aggregator", "database failure - getSipEventAggregators. ",
     [](LocationService& s) {
         std::vector<velm::SipEventAggregator> aggregators;
         return s.getSipEventAggregators(aggregators);
     }},
    {"getSipEventAggregator", "", "database failure - getSipEventAggregator. ",
     [](LocationService& s) {
         velm::SipEventAggregator aggregator;
         return s.getSipEventAggregator("5", aggregator);
     }},
};

std::string accessorName(const testing::TestParamInfo<Accessor>& info) {
    return info.param.name;
}

void PrintTo(const Accessor& accessor, std::ostream* out) {
    *out << accessor.name;
}

} // namespace

class AccessorFailure : public Accessors, public testing::WithParamInterface<Accessor> {};

TEST_P(AccessorFailure, ADatabaseFailureRaisesTheAccessorsAlarm) {
    const Accessor& accessor = GetParam();
    if (*accessor.table != '\0')
        db.admin().exec(std::string("ALTER TABLE ") + accessor.table + " RENAME TO lost");
    DatabaseResult result = accessor.call(service);
    if (accessor.alarmPrefix == nullptr) {
        EXPECT_TRUE(result.notFound());
        EXPECT_TRUE(alarms.alarms().empty());
        return;
    }
    ASSERT_TRUE(result.fatalError());
    ASSERT_EQ(1u, alarms.alarms().size());
    EXPECT_EQ("zuVELMProxyDBAccessFailed", alarms.alarms()[0].first);
    EXPECT_EQ(accessor.alarmPrefix + result.getErrorMessage(), alarms.alarms()[0].second);
}

TEST_P(AccessorFailure, WithoutAConnectionNothingIsAskedAndNothingAlarmed) {
    LocationService unconnected;
    DatabaseResult result = GetParam().call(unconnected);
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_TRUE(alarms.alarms().empty());
}

INSTANTIATE_TEST_SUITE_P(EveryAccessor, AccessorFailure, testing::ValuesIn(ACCESSORS), accessorName);

TEST_F(Accessors, MissingSettingsAreNotFoundWithoutAnAlarm) {
    velmtest::TraceCapture capture({"LocationService"});
    int qos = -7;
    EXPECT_TRUE(service.getQoS(&qos).notFound());
    EXPECT_EQ(-7, qos);
    EXPECT_TRUE(capture.contains("LocationService", "getQoS failed to find QoS in DB"));

    std::string nodeType = "stale";
    EXPECT_TRUE(service.getNodeType(nodeType).notFound());
    EXPECT_EQ("", nodeType);
    // Settings without a node type are not found either.
    parameter("parent", "'p'");
    nodeType = "stale";
    EXPECT_TRUE(service.getNodeType(nodeType).notFound());
    EXPECT_EQ("", nodeType);

    std::string user;
    std::string password;
    EXPECT_TRUE(service.getSystemUserAndPasswordValues(user, password).notFound());

    std::vector<velm::remoteFilter> filters;
    std::string destination;
    EXPECT_TRUE(service.getRemoteFilters(&filters, &destination).notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(Accessors, SettingsThatExistAreRead) {
    parameter("qos", "'46'");
    parameter("node_type", "'edge'");
    parameter("EdgeUsername", "'edge-admin'");
    parameter("EdgePassword", "'edge-secret'");
    parameter("HomeUsername", "'home-admin'");
    parameter("HomePassword", "'home-secret'");
    int qos = 0;
    ASSERT_TRUE(service.getQoS(&qos).okay());
    EXPECT_EQ(46, qos);
    std::string nodeType;
    ASSERT_TRUE(service.getNodeType(nodeType).okay());
    EXPECT_EQ("edge", nodeType);
    std::string user;
    std::string password;
    ASSERT_TRUE(service.getSystemUserAndPasswordValues(user, password).okay());
    EXPECT_EQ("edge-admin", user);
    EXPECT_EQ("edge-secret", password);
}

TEST_F(Accessors, NullArgumentsAreBadParameters) {
    bool flag = true;
    std::vector<velm::remoteFilter> filters;
    std::string destination;
    EXPECT_TRUE(service.getQoS(nullptr).badParameter());
    EXPECT_TRUE(service.checkInboundDomainAccess(nullptr, flag).badParameter());
    EXPECT_TRUE(service.isEmergencyContact(nullptr, flag).badParameter());
    EXPECT_TRUE(service.getRemoteFilters(nullptr, &destination).badParameter());
    EXPECT_TRUE(service.getRemoteFilters(&filters, nullptr).badParameter());
    EXPECT_TRUE(flag);
    EXPECT_TRUE(alarms.alarms().empty());
}

struct Rule {
    const char* direction;
    const char* domain;
    const char* action;
};

struct DomainCase {
    const char* name;
    std::vector<Rule> rules;  // in qvalue order
    const char* domain;
    bool allowed;
};

void PrintTo(const DomainCase& c, std::ostream* out) {
    *out << c.name;
}

class DomainAccessDecision : public Accessors, public testing::WithParamInterface<DomainCase> {};

TEST_P(DomainAccessDecision, DenyWinsForTheExactDomainInbound) {
    const DomainCase& c = GetParam();
    for (size_t at = 0; at < c.rules.size(); ++at)
        db.admin().exec(std::string("INSERT INTO domain_access (direction, sip_domain, domain_action, qvalue) VALUES ('") +
                        c.rules[at].direction + "', '" + c.rules[at].domain + "', '" + c.rules[at].action + "', " +
                        std::to_string(at + 1) + ")");
    bool allowed = !c.allowed;
    ASSERT_TRUE(service.checkInboundDomainAccess(c.domain, allowed).okay());
    EXPECT_EQ(c.allowed, allowed);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, DomainAccessDecision,
    testing::Values(DomainCase{"NoRules", {}, "example.org", true},
                    DomainCase{"AllowThenDeny", {{"i", "example.org", "a"}, {"*", "example.org", "d"}}, "example.org", false},
                    DomainCase{"DenyThenAllow", {{"*", "example.org", "d"}, {"i", "example.org", "a"}}, "example.org", false},
                    DomainCase{"OutboundIgnored", {{"o", "example.org", "d"}}, "example.org", true},
                    DomainCase{"OtherActionAllows", {{"i", "example.org", "x"}}, "example.org", true},
                    DomainCase{"WholeNameOnly", {{"i", "sub.example.org", "d"}, {"i", "example.or", "d"}}, "example.org", true},
                    DomainCase{"CaseCounts", {{"i", "Example.org", "d"}}, "example.org", true}),
    [](const testing::TestParamInfo<DomainCase>& info) { return std::string(info.param.name); });

TEST_F(Accessors, AFailedRuleReadLeavesTheAnswerAlone) {
    db.admin().exec("ALTER TABLE domain_access RENAME TO lost");
    bool allowed = false;
    EXPECT_TRUE(service.checkInboundDomainAccess("example.org", allowed).queryError());
    EXPECT_FALSE(allowed);
}

TEST_F(Accessors, EmergencyContactsAreExactIdsReadOnEveryCall) {
    bool emergency = true;
    ASSERT_TRUE(service.isEmergencyContact("911", emergency).okay());
    EXPECT_FALSE(emergency);

    db.admin().exec("INSERT INTO emergency_call_ids (address) VALUES ('911'), ('sip:112@example.org')");
    struct Case {
        std::string contact;
        bool emergency;
    };
    for (const Case& c : {Case{"911", true}, Case{"sip:112@example.org", true}, Case{"9110", false},
                          Case{"91", false}, Case{"SIP:112@example.org", false}, Case{"", false}}) {
        emergency = !c.emergency;
        ASSERT_TRUE(service.isEmergencyContact(c.contact, emergency).okay()) << c.contact;
        EXPECT_EQ(c.emergency, emergency) << c.contact;
    }
}

TEST_F(Accessors, RemoteFiltersNeedADestination) {
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '3')");
    db.admin().exec("INSERT INTO persistent_filter (fid, trid, label) VALUES (7, 70, 'calls'), (8, 80, 'other node')");
    db.admin().exec("INSERT INTO nodes_to_filter VALUES (7, '3'), (8, '4')");

    // No destination configured at all: nothing to send traces to.
    std::vector<velm::remoteFilter> filters;
    std::string destination;
    EXPECT_TRUE(service.getRemoteFilters(&filters, &destination).notFound());

    // An empty destination: the filters come back, the status stays okay.
    parameter("TraceLogger", "''");
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

TEST_F(Accessors, AnEmptyAggregatorIdAsksNothing) {
    db.admin().exec("ALTER TABLE sip_event_aggregator RENAME TO lost");
    velm::SipEventAggregator aggregator;
    EXPECT_TRUE(service.getSipEventAggregator("", aggregator).okay());
    EXPECT_EQ(-1, aggregator.id());
    EXPECT_TRUE(alarms.alarms().empty());
}
