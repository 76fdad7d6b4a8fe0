// Reading the node's configuration: system parameters, credentials, trusted
// hosts, domain rules, emergency ids, trace filters, event aggregators.
#include "DatabaseCommandExecutor.h"
#include "DomainAccess.h"
#include "HostInfo.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"
#include "SipEventAggregator.h"
#include "TestServer.h"
#include "TraceCapture.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const char* const CHANNEL = "DatabaseCommandExecutor";

class ConfigurationCommands : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage(); }

    void parameter(const std::string& application, const std::string& scope, const std::string& name,
                   const std::string& value) {
        db.admin().exec("INSERT INTO system_parameters VALUES ('" + application + "', '" + scope + "', '" + name +
                        "', " + value + ")");
    }
    void velmParameter(const std::string& name, const std::string& value) {
        parameter("velm", "system", name, value);
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(ConfigurationCommands, HostInfoSetsOnlyTheFieldsWhoseParametersExist) {
    velmParameter("node_type", "'edge'");
    velmParameter("parent", "NULL");
    // Another node's or application's settings are not this host's.
    parameter("velm", "local", "server_name", "'elsewhere'");
    parameter("proxy1", "system", "top_url", "'sip:top'");

    velm::HostInfo info;
    info.setParent(std::string("old-parent"));
    info.setServerName(std::string("old-server"));
    info.setTopUrl(std::string("old-top"));
    info.setOutboundAllowInternal(false);
    info.setOutboundAllowExternal(true);
    DatabaseResult result = exec.getHostInfo(info);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ("edge", info.nodeType());
    EXPECT_EQ("old-parent", info.parent());
    EXPECT_EQ("old-server", info.serverName());
    EXPECT_EQ("old-top", info.topUrl());
    EXPECT_FALSE(info.outboundAllowInternal());
    EXPECT_TRUE(info.outboundAllowExternal());
}

TEST_F(ConfigurationCommands, HostInfoMapsEveryParameterToItsField) {
    velmParameter("node_type", "'home'");
    velmParameter("parent", "'p'");
    velmParameter("parent_contact", "'sip:p@10.0.0.1'");
    velmParameter("top_url", "'sip:top'");
    velmParameter("server_name", "'srv'");
    velmParameter("outbound_proxy", "'sip:op'");
    velmParameter("outbound_direct", "'sip:od'");
    // Only t, T or 1 at the start reads as true.
    velmParameter("outbound_allowed_internal", "'yes'");
    velmParameter("outbound_allowed_external", "'TRUE'");

    velm::HostInfo info;
    ASSERT_TRUE(exec.getHostInfo(info).okay());
    EXPECT_EQ("home", info.nodeType());
    EXPECT_EQ("p", info.parent());
    EXPECT_EQ("sip:p@10.0.0.1", info.parentContact());
    EXPECT_EQ("sip:top", info.topUrl());
    EXPECT_EQ("srv", info.serverName());
    EXPECT_EQ("sip:op", info.outboundProxy());
    EXPECT_EQ("sip:od", info.outboundDirect());
    EXPECT_FALSE(info.outboundAllowInternal());
    EXPECT_TRUE(info.outboundAllowExternal());
}

TEST_F(ConfigurationCommands, ProxyConfigReplacesTheItemsWithThoseOfTheNamedProxy) {
    parameter("proxyA", "system", "port", "'5060'");
    parameter("proxyA", "tls", "cert", "NULL");
    parameter("proxyB", "system", "port", "'5070'");

    std::vector<velm::ProxyConfig> items(3);
    ASSERT_TRUE(exec.getProxyConfig("proxyA", items).okay());
    ASSERT_EQ(2u, items.size());
    std::map<std::string, velm::ProxyConfig> byName;
    for (const auto& item : items)
        byName[item.name()] = item;
    EXPECT_EQ("system", byName["port"].scope());
    EXPECT_EQ("5060", byName["port"].value());
    EXPECT_EQ("tls", byName["cert"].scope());
    EXPECT_EQ("", byName["cert"].value());

    // A proxy without items empties the list as well.
    ASSERT_TRUE(exec.getProxyConfig("proxyC", items).okay());
    EXPECT_TRUE(items.empty());
}

TEST_F(ConfigurationCommands, ProxyConfigWithoutANameIsAQueryError) {
    std::vector<velm::ProxyConfig> items(1);
    DatabaseResult result = exec.getProxyConfig(nullptr, items);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ("null proxy name", result.getErrorMessage());
    EXPECT_EQ("null proxy name", exec.getErrorMessage());
    EXPECT_EQ(1u, items.size());
}

TEST_F(ConfigurationCommands, SystemParameterValueByItsThreeKeys) {
    parameter("boot", "system", "mode", "'cluster'");
    parameter("boot", "other", "mode", "'single'");
    std::string value = "stale";
    ASSERT_TRUE(exec.getSystemParameterValue("boot", "system", "mode", value).okay());
    EXPECT_EQ("cluster", value);

    value = "stale";
    EXPECT_TRUE(exec.getSystemParameterValue("boot", "system", "absent", value).notFound());
    EXPECT_EQ("", value);
}

TEST_F(ConfigurationCommands, SystemParameterValueRefusesEmptyKeys) {
    velmtest::TraceCapture capture({CHANNEL});
    const std::string message =
        "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: parameters can't be empty string!";
    std::string value = "stale";
    DatabaseResult result = exec.getSystemParameterValue("velm", "", "qos", value);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ(message, result.getErrorMessage());
    EXPECT_EQ("", value);
    EXPECT_TRUE(capture.contains(CHANNEL, message));
}

TEST(ConfigurationCommandsServerGone, SystemParameterValueReportsAFailedStatementOnlyInTheTrace) {
    velmtest::ScratchServer scratch;
    DatabaseCommandExecutor exec;
    ASSERT_TRUE(exec.connect(scratch.database().c_str(), "velm", "pw")) << exec.getErrorMessage();
    scratch.stop();

    velmtest::TraceCapture capture({CHANNEL});
    std::string value = "stale";
    DatabaseResult result = exec.getSystemParameterValue("velm", "system", "qos", value);
    EXPECT_TRUE(result.okay());
    EXPECT_EQ("", value);
    EXPECT_TRUE(capture.contains(
        CHANNEL, "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: db execute failed!, cmd="
                 "SELECT system_parameters.value FROM system_parameters WHERE (((system_parameters.application = "
                 "'velm') AND (system_parameters.scope = 'system')) AND (system_parameters.name = 'qos'));"));
}

TEST_F(ConfigurationCommands, SystemCredentialsOfTheEdgeAndOfTheHomeGoOutAsOneText) {
    // The credentials are looked up in any scope.
    parameter("velm", "admin", "EdgeUsername", "'edge-user'");
    parameter("velm", "admin", "EdgePassword", "'edge-secret'");
    parameter("velm", "admin", "HomeUsername", "'home-user'");
    parameter("velm", "admin", "HomePassword", "'home-secret'");

    velmtest::TraceCapture capture({"DatabaseConnection"});
    std::string user, password;
    ASSERT_TRUE(exec.getSystemUserAndPasswordValues(user, password, true).okay());
    EXPECT_EQ("edge-user", user);
    EXPECT_EQ("edge-secret", password);
    const std::string select = "SELECT system_parameters.value FROM system_parameters WHERE "
                               "system_parameters.application = 'velm' AND system_parameters.name = ";
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \n" + select + "'EdgeUsername';" + select +
                                                           "'EdgePassword';\n"));
    ASSERT_TRUE(exec.getSystemUserAndPasswordValues(user, password, false).okay());
    EXPECT_EQ("home-user", user);
    EXPECT_EQ("home-secret", password);
}

TEST_F(ConfigurationCommands, MissingHomePasswordIsReportedAsTheEdgePassword) {
    parameter("velm", "system", "HomeUsername", "'home-user'");
    parameter("velm", "system", "EdgePassword", "'edge-secret'");
    std::string user, password = "unset";
    DatabaseResult result = exec.getSystemUserAndPasswordValues(user, password, false);
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ("EdgePassword not found", result.getErrorMessage());
    EXPECT_EQ("home-user", user);
    EXPECT_EQ("unset", password);
}

TEST_F(ConfigurationCommands, MissingUserStopsBeforeThePassword) {
    parameter("velm", "system", "EdgePassword", "'edge-secret'");
    std::string user = "unset", password = "unset";
    EXPECT_TRUE(exec.getSystemUserAndPasswordValues(user, password, true).notFound());
    EXPECT_EQ("unset", user);
    EXPECT_EQ("unset", password);
}

TEST_F(ConfigurationCommands, TrustedHostsSkipNamelessRowsAndReadTheOrigProcFlag) {
    db.admin().exec("INSERT INTO trusted_host (name, perform_orig_proc) VALUES "
                    "('gw1.example.com', true), ('gw2.example.com', false), ('gw3.example.com', NULL), (NULL, true)");
    std::vector<velm::TrustedHostRecord> hosts;
    ASSERT_TRUE(exec.getTrustedHosts(hosts).okay());
    ASSERT_EQ(3u, hosts.size());
    std::map<std::string, bool> origProc;
    for (const auto& host : hosts)
        origProc[host.getName()] = host.getPerformOrigProc();
    EXPECT_TRUE(origProc.at("gw1.example.com"));
    EXPECT_FALSE(origProc.at("gw2.example.com"));
    EXPECT_FALSE(origProc.at("gw3.example.com"));
}

TEST_F(ConfigurationCommands, DomainRulesComeInQvalueOrder) {
    db.admin().exec("INSERT INTO domain_access (direction, sip_domain, domain_action, qvalue) VALUES "
                    "('i', 'b.example.com', 'd', 0.5), ('o', 'a.example.com', 'a', 0.1), "
                    "('*', 'c.example.com', NULL, 0.9)");
    std::vector<velm::DomainAccess> rules;
    ASSERT_TRUE(exec.getDomainAccessList(rules).okay());
    ASSERT_EQ(3u, rules.size());
    EXPECT_EQ("a.example.com", rules[0].domain());
    EXPECT_EQ("o", rules[0].direction());
    EXPECT_EQ("a", rules[0].action());
    EXPECT_EQ("b.example.com", rules[1].domain());
    EXPECT_EQ("d", rules[1].action());
    EXPECT_EQ("c.example.com", rules[2].domain());
    EXPECT_EQ("*", rules[2].direction());
    EXPECT_EQ("", rules[2].action());
}

TEST_F(ConfigurationCommands, EmergencyIdsAreAppendedWithoutNulls) {
    db.admin().exec("INSERT INTO emergency_call_ids (address) VALUES ('112'), (NULL), ('sos@example.com')");
    std::vector<std::string> ids{"911"};
    ASSERT_TRUE(exec.getEmergencyCallIds(ids).okay());
    std::sort(ids.begin() + 1, ids.end());
    EXPECT_EQ((std::vector<std::string>{"911", "112", "sos@example.com"}), ids);
}

TEST_F(ConfigurationCommands, MissingTableIsAQueryErrorTracedAsSuch) {
    db.admin().exec("DROP TABLE emergency_call_ids");
    velmtest::TraceCapture capture({CHANNEL});
    std::vector<std::string> ids;
    DatabaseResult result = exec.getEmergencyCallIds(ids);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("emergency_call_ids"));
    EXPECT_TRUE(capture.contains(CHANNEL, "query error"));
    EXPECT_TRUE(ids.empty());
}

namespace {

class RemoteFilters : public ConfigurationCommands {
protected:
    void SetUp() override {
        ConfigurationCommands::SetUp();
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '7')");
    }

    void filter(int fid, const std::string& node) {
        std::string id = std::to_string(fid);
        db.admin().exec("INSERT INTO persistent_filter VALUES (" + id + ", 1" + id + ", 'label" + id +
                        "', 'INVITE', 'sip:from', 'sip:to', 'sip:contact', 'req', 'resp', 'agent', 'full')");
        db.admin().exec("INSERT INTO nodes_to_filter VALUES (" + id + ", '" + node + "')");
    }

    std::vector<velm::remoteFilter> filters;
    std::string destination = "unset";
};

} // namespace

TEST_F(RemoteFilters, NoFilterForThisNodeIsZeroWhateverTheDestination) {
    filter(1, "8");
    velmParameter("TraceLogger", "'udp:10.1.1.1:9999'");
    EXPECT_EQ(0, exec.getRemoteFilters(&filters, &destination));
    EXPECT_TRUE(filters.empty());
    EXPECT_EQ("unset", destination);
}

TEST_F(RemoteFilters, FiltersOfThisNodeWithTheirDestination) {
    filter(1, "7");
    filter(2, "8");
    filter(3, "7");
    velmParameter("TraceLogger", "'udp:10.1.1.1:9999'");
    ASSERT_EQ(1, exec.getRemoteFilters(&filters, &destination));
    EXPECT_EQ("udp:10.1.1.1:9999", destination);
    ASSERT_EQ(2u, filters.size());
    const velm::remoteFilter& first = filters[0].fid() == 1 ? filters[0] : filters[1];
    EXPECT_EQ(1, first.fid());
    EXPECT_EQ(11, first.trid());
    EXPECT_EQ("label1", first.label());
    EXPECT_EQ("INVITE", first.methods());
    EXPECT_EQ("sip:from", first.from());
    EXPECT_EQ("sip:to", first.to());
    EXPECT_EQ("sip:contact", first.contact());
    EXPECT_EQ("req", first.request());
    EXPECT_EQ("resp", first.response());
    EXPECT_EQ("agent", first.useragent());
    EXPECT_EQ("full", first.type());
    EXPECT_EQ(3, (filters[0].fid() == 1 ? filters[1] : filters[0]).fid());
}

TEST_F(RemoteFilters, FiltersWithoutADestinationRowAreZeroButKept) {
    filter(1, "7");
    EXPECT_EQ(0, exec.getRemoteFilters(&filters, &destination));
    EXPECT_EQ(1u, filters.size());
    EXPECT_EQ("unset", destination);
}

TEST_F(RemoteFilters, FiltersWithAnEmptyDestinationAreMinusTwo) {
    filter(1, "7");
    velmParameter("TraceLogger", "''");
    velmtest::TraceCapture capture({CHANNEL});
    EXPECT_EQ(-2, exec.getRemoteFilters(&filters, &destination));
    EXPECT_EQ("unset", destination);
    EXPECT_TRUE(capture.contains(CHANNEL, "tarn.system_parameters velm/system/TraceLogger destination null or empty."));
}

TEST_F(RemoteFilters, DatabaseFailureIsMinusOne) {
    db.admin().exec("DROP TABLE nodes_to_filter");
    EXPECT_EQ(-1, exec.getRemoteFilters(&filters, &destination));
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("nodes_to_filter"));
    DatabaseCommandExecutor unconnected;
    EXPECT_EQ(-1, unconnected.getRemoteFilters(&filters, &destination));
}

TEST_F(ConfigurationCommands, OldEventNotificationsAreDeleted) {
    db.admin().exec("INSERT INTO event_notify (evt_type, evt_timestamp) VALUES "
                    "('old', now() - interval '61 seconds'), ('older', now() - interval '1 hour'), "
                    "('recent', now() - interval '50 seconds'), ('new', now())");
    ASSERT_TRUE(exec.delOldEventNotify().okay());
    auto rows = db.admin().query("SELECT evt_type FROM event_notify ORDER BY evt_type");
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("new", rows[0][0]);
    EXPECT_EQ("recent", rows[1][0]);
}

namespace {

class EventAggregators : public ConfigurationCommands {
protected:
    void SetUp() override {
        ConfigurationCommands::SetUp();
        db.admin().exec("INSERT INTO subscriber (sid, auth_user_id) VALUES (20, 'agg')");
        db.admin().exec("INSERT INTO contact_set (csid, sid) VALUES (200, 20)");
        db.admin().exec("INSERT INTO contact (csid, address) VALUES (200, 'sip:agg@10.0.0.1'), "
                        "(200, 'sip:agg@10.0.0.2')");
        db.admin().exec("INSERT INTO sip_event_aggregator VALUES "
                        "(5, 20, 3, 'rls', 'buddies', 'from', 'to', 'presence', 'pidf', 40, 15)");
    }
};

} // namespace

TEST_F(EventAggregators, AnAggregatorComesOncePerContactOfItsSet) {
    std::vector<velm::SipEventAggregator> aggregators;
    ASSERT_TRUE(exec.getSipEventAggregators(aggregators).okay());
    ASSERT_EQ(2u, aggregators.size());
    std::vector<std::string> addresses{aggregators[0].address(), aggregators[1].address()};
    std::sort(addresses.begin(), addresses.end());
    EXPECT_EQ((std::vector<std::string>{"sip:agg@10.0.0.1", "sip:agg@10.0.0.2"}), addresses);
    const velm::SipEventAggregator& aggregator = aggregators[0];
    EXPECT_EQ(5, aggregator.id());
    EXPECT_EQ(20, aggregator.sid());
    EXPECT_EQ(3, aggregator.nodeId());
    EXPECT_EQ(200, aggregator.csid());
    EXPECT_EQ("rls", aggregator.aType());
    EXPECT_EQ("buddies", aggregator.name());
    EXPECT_EQ("from", aggregator.fromName());
    EXPECT_EQ("to", aggregator.toName());
    EXPECT_EQ("presence", aggregator.event());
    EXPECT_EQ("pidf", aggregator.docType());
    EXPECT_EQ(40, aggregator.presentityPerBatch());
    EXPECT_EQ(15, aggregator.throttlingInterval());
}

TEST_F(EventAggregators, OneAggregatorByANumericIdIsRejectedByTheServer) {
    // The id runs into the following "and": PostgreSQL 15 refuses "5and".
    velm::SipEventAggregator aggregator;
    aggregator.setName("untouched");
    DatabaseResult result = exec.getSipEventAggregator("5", aggregator);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("sea.id=5and sea.sid=cs.sid and cs.csid=c.csid;"));
    EXPECT_EQ("untouched", aggregator.name());
}

TEST_F(EventAggregators, OneAggregatorByAnIdThatEndsInABlank) {
    velm::SipEventAggregator aggregator;
    ASSERT_TRUE(exec.getSipEventAggregator("5 ", aggregator).okay());
    EXPECT_EQ(5, aggregator.id());
    EXPECT_EQ(200, aggregator.csid());
    EXPECT_EQ("presence", aggregator.event());

    velm::SipEventAggregator absent;
    absent.setName("untouched");
    EXPECT_TRUE(exec.getSipEventAggregator("6 ", absent).okay());
    EXPECT_EQ("untouched", absent.name());
}
