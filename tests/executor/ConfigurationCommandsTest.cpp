// Reading the node's configuration and routing data: system parameters, credentials, the list tables, trace
// filters, event aggregators, address maps and the prefix map's change counter.
#include "AddressMapRecord.h"
#include "DomainAccess.h"
#include "ExecutorFixture.h"
#include "HostInfo.h"
#include "PrefixMapRecord.h"
#include "ProxyConfig.h"
#include "RemoteFilter.h"
#include "SipEventAggregator.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using namespace velmtest;

namespace {


using Read = std::function<DatabaseResult(DatabaseCommandExecutor&, Texts& out)>;

// Reads the list into a copy of `initial` and renders each record; sorted unless the
// command gives an order.
template <class Record, class Render>
Read listOf(DatabaseResult (DatabaseCommandExecutor::*get)(std::vector<Record>&), std::vector<Record> initial,
            Render render, bool ordered = false) {
    return [=](DatabaseCommandExecutor& exec, Texts& out) {
        std::vector<Record> records = initial;
        DatabaseResult result = (exec.*get)(records);
        for (const Record& record : records)
            out.push_back(render(record));
        if (!ordered)
            std::sort(out.begin(), out.end());
        return result;
    };
}

// A command that reads one table: the rows put there, and the records read, rendered.
struct Reader {
    const char* name;
    const char* table;
    const char* rows;
    Read read;
    Texts expected;
};

const char* const AGGREGATOR_ROWS = "INSERT INTO subscriber (sid, auth_user_id) VALUES (20, 'agg');"
                                    "INSERT INTO contact_set (csid, sid) VALUES (200, 20);"
                                    "INSERT INTO contact (csid, address) VALUES (200, 'sip:agg@10.0.0.1'), "
                                    "(200, 'sip:agg@10.0.0.2');"
                                    "INSERT INTO sip_event_aggregator VALUES "
                                    "(5, 20, 3, 'rls', 'buddies', 'from', 'to', 'presence', 'pidf', 40, 15)";

std::string aggregator(const velm::SipEventAggregator& a) {
    return joined({text(a.id()), text(a.sid()), text(a.nodeId()), text(a.csid()), a.aType(), a.name(),
                   a.fromName(), a.toName(), a.event(), a.docType(), text(a.presentityPerBatch()),
                   text(a.throttlingInterval()), a.address()});
}

using E = DatabaseCommandExecutor;

const Reader READERS[] = {
    {"TrustedHosts", "trusted_host",
     "INSERT INTO trusted_host (name, perform_orig_proc) VALUES "
     "('gw1.example.com', true), ('gw2.example.com', false), ('gw3.example.com', NULL), (NULL, true)",
     listOf<velm::TrustedHostRecord>(&E::getTrustedHosts, {}, [](const velm::TrustedHostRecord& host) {
         return joined({host.getName(), host.getPerformOrigProc() ? "1" : "0"});
     }),
     {"gw1.example.com|1", "gw2.example.com|0", "gw3.example.com|0"}},
    {"DomainRulesInQvalueOrder", "domain_access",
     "INSERT INTO domain_access (direction, sip_domain, domain_action, qvalue) VALUES "
     "('i', 'b.example.com', 'd', 0.5), ('o', 'a.example.com', 'a', 0.1), ('*', 'c.example.com', NULL, 0.9)",
     listOf<velm::DomainAccess>(&E::getDomainAccessList, {}, [](const velm::DomainAccess& rule) {
         return joined({rule.domain(), rule.direction(), rule.action()});
     }, true),
     {"a.example.com|o|a", "b.example.com|i|d", "c.example.com|*|"}},
    // Appended to what the list held, without NULLs.
    {"EmergencyIds", "emergency_call_ids",
     "INSERT INTO emergency_call_ids (address) VALUES ('112'), (NULL), ('sos@example.com')",
     listOf<std::string>(&E::getEmergencyCallIds, {"911"}, [](const std::string& id) { return id; }),
     {"112", "911", "sos@example.com"}},
    {"PrefixMaps", "prefix_map",
     "INSERT INTO contact_set (csid) VALUES (10), (11), (12);"
     "INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('0049', 10, 12), ('0033', 11, 11), (NULL, 12, 0)",
     listOf<velm::PrefixMapRecord>(&E::getPrefixMaps, {velm::PrefixMapRecord()}, [](const velm::PrefixMapRecord& map) {
         return joined({map.prefix(), text(map.csid()), text(map.total_length())});
     }),
     {"0033|11|11", "0049|10|12", "|-1|0", "|12|0"}},
    // By priority, with their sets' settings: a set that does not say whether
    // to replace the request URI replaces it.
    {"AddressMapsByPriority", "address_map",
     "INSERT INTO contact_set (csid, ordering, replace_uri) VALUES "
     "(10, 'sequential', true), (11, 'cycle', false), (12, 'sequential', NULL);"
     "INSERT INTO address_map (handle, csid, pattern, priority) VALUES "
     "('late', 11, '^sip:9.*', 30), ('early', 10, '^sip:1.*', 5), ('middle', 12, '^sip:5.*', 20)",
     listOf<velm::AddressMapRecord>(&E::getAddressMaps, {}, [](const velm::AddressMapRecord& map) {
         return joined({map.handle(), text(map.csid()), map.pattern(), text(map.priority()), map.ordering(),
                        map.replaceUri() ? "replace" : "keep"});
     }, true),
     {"early|10|^sip:1.*|5|sequential|replace", "middle|12|^sip:5.*|20|sequential|replace",
      "late|11|^sip:9.*|30|cycle|keep"}},
    // Replaces the list with the items of the named proxy.
    {"ProxyConfig", "system_parameters",
     "INSERT INTO system_parameters VALUES ('proxyA', 'system', 'port', '5060'), ('proxyA', 'tls', 'cert', NULL), "
     "('proxyB', 'system', 'port', '5070')",
     [](E& exec, Texts& out) {
         std::vector<velm::ProxyConfig> items(3);
         DatabaseResult result = exec.getProxyConfig("proxyA", items);
         for (const auto& item : items)
             out.push_back(joined({item.name(), item.scope(), item.value()}));
         std::sort(out.begin(), out.end());
         return result;
     },
     {"cert|tls|", "port|system|5060"}},
    // An aggregator comes once per contact of its set.
    {"EventAggregators", "sip_event_aggregator", AGGREGATOR_ROWS,
     listOf<velm::SipEventAggregator>(&E::getSipEventAggregators, {}, aggregator),
     {"5|20|3|200|rls|buddies|from|to|presence|pidf|40|15|sip:agg@10.0.0.1",
      "5|20|3|200|rls|buddies|from|to|presence|pidf|40|15|sip:agg@10.0.0.2"}},
};

class ListReaders : public ExecutorTest, public ::testing::WithParamInterface<Reader> {};

std::string readerName(const ::testing::TestParamInfo<Reader>& info) {
    return info.param.name;
}

class ConfigurationCommands : public ExecutorTest {};

} // namespace

TEST_P(ListReaders, RowsBecomeRecords) {
    db.admin().exec(GetParam().rows);
    Texts read;
    DatabaseResult result = GetParam().read(exec, read);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(GetParam().expected, read);
}

TEST_P(ListReaders, MissingTableIsAQueryError) {
    db.admin().exec(std::string("DROP TABLE ") + GetParam().table + " CASCADE");
    Texts read;
    DatabaseResult result = GetParam().read(exec, read);
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(holds(result.getErrorMessage(), GetParam().table));
}

INSTANTIATE_TEST_SUITE_P(ConfigurationTables, ListReaders, ::testing::ValuesIn(READERS), readerName);

TEST_F(ConfigurationCommands, HostInfoSetsTheFieldsOfTheVelmSystemParametersThatExist) {
    // Another scope's or application's settings are not this host's.
    db.admin().exec("INSERT INTO system_parameters VALUES ('velm', 'system', 'node_type', 'edge'), "
                    "('velm', 'system', 'parent', NULL), ('velm', 'local', 'server_name', 'elsewhere'), "
                    "('proxy1', 'system', 'top_url', 'sip:top')");
    velm::HostInfo info;
    info.setParent(std::string("old-parent"));
    info.setServerName(std::string("old-server"));
    info.setTopUrl(std::string("old-top"));
    info.setOutboundAllowInternal(false);
    info.setOutboundAllowExternal(true);
    auto read = [&] {
        EXPECT_TRUE(exec.getHostInfo(info).okay()) << exec.getErrorMessage();
        return joined({info.nodeType(), info.parent(), info.parentContact(), info.topUrl(), info.serverName(),
                       info.outboundProxy(), info.outboundDirect(), text(info.outboundAllowInternal()),
                       text(info.outboundAllowExternal())});
    };
    EXPECT_EQ("edge|old-parent||old-top|old-server|||0|1", read());
    // Only t, T or 1 at the start reads as true.
    db.admin().exec("INSERT INTO system_parameters SELECT 'velm', 'system', name, value FROM (VALUES "
                    "('parent', 'p'), ('parent_contact', 'sip:p@10.0.0.1'), ('top_url', 'sip:top'), "
                    "('server_name', 'srv'), ('outbound_proxy', 'sip:op'), ('outbound_direct', 'sip:od'), "
                    "('outbound_allowed_internal', 'yes'), ('outbound_allowed_external', 'TRUE')) AS p(name, value) "
                    "ON CONFLICT (application, scope, name) DO UPDATE SET value = excluded.value");
    info.setOutboundAllowInternal(true);
    info.setOutboundAllowExternal(false);
    EXPECT_EQ("edge|p|sip:p@10.0.0.1|sip:top|srv|sip:op|sip:od|0|1", read());
}

TEST_F(ConfigurationCommands, ProxyConfigOfAnUnknownProxyIsEmptyAndWithoutANameAQueryError) {
    std::vector<velm::ProxyConfig> items(1);
    DatabaseResult result = exec.getProxyConfig(nullptr, items);
    EXPECT_EQ("queryError|null proxy name|null proxy name|1",
              joined({kind(result), result.getErrorMessage(), exec.getErrorMessage(), text(items.size())}));
    ASSERT_TRUE(exec.getProxyConfig("proxyC", items).okay());
    EXPECT_TRUE(items.empty());
}

TEST_F(ConfigurationCommands, SystemParameterValueByItsThreeNonEmptyKeys) {
    db.admin().exec("INSERT INTO system_parameters VALUES ('boot', 'system', 'mode', 'cluster'), "
                    "('boot', 'other', 'mode', 'single')");
    TraceCapture capture({EXECUTOR});
    const std::string message =
        "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: parameters can't be empty string!";
    const std::pair<const char*, std::string> cases[] = {
        {"mode", "okay|cluster"}, {"absent", "notFound|"}, {"", "queryError||" + message}};
    for (const auto& c : cases) {
        std::string value = "stale";
        DatabaseResult result = exec.getSystemParameterValue("boot", "system", c.first, value);
        EXPECT_EQ(c.second, joined({kind(result), value}) + (*c.first ? "" : "|" + result.getErrorMessage()));
    }
    EXPECT_TRUE(capture.contains(EXECUTOR, message));
}

TEST_F(ConfigurationCommands, SystemCredentialsOfTheEdgeOrTheHome) {
    // The parameters there are (each holding its name), edge or home, and the
    // answer: kind|user|password|error text. They are looked up in any scope.
    const std::tuple<const char*, bool, const char*> cases[] = {
        {"'EdgeUsername','EdgePassword','HomeUsername','HomePassword'", true, "okay|EdgeUsername|EdgePassword|"},
        {"'EdgeUsername','EdgePassword','HomeUsername','HomePassword'", false, "okay|HomeUsername|HomePassword|"},
        // A missing home password is reported as the edge password.
        {"'HomeUsername','EdgePassword'", false, "notFound|HomeUsername|unset|EdgePassword not found"},
        // A missing user stops before the password.
        {"'EdgePassword'", true, "notFound|unset|unset|"},
    };
    TraceCapture capture({"DatabaseConnection"});
    for (const auto& c : cases) {
        db.admin().exec(std::string("DELETE FROM system_parameters; INSERT INTO system_parameters SELECT 'velm', "
                                    "'admin', name, name FROM unnest(ARRAY[") + std::get<0>(c) + "]) AS name");
        std::string user = "unset", password = "unset";
        DatabaseResult result = exec.getSystemUserAndPasswordValues(user, password, std::get<1>(c));
        EXPECT_EQ(std::get<2>(c), joined({kind(result), user, password, result.getErrorMessage()}));
    }
    const std::string select = "SELECT system_parameters.value FROM system_parameters WHERE "
                               "system_parameters.application = 'velm' AND system_parameters.name = ";
    EXPECT_TRUE(capture.contains("DatabaseConnection",
                                 "Executing query: \n" + select + "'EdgeUsername';" + select + "'EdgePassword';\n"));
}

TEST_F(ConfigurationCommands, RemoteFiltersOfThisNodeAndTheirDestination) {
    // Filters (id, node), the trace destination, and the answer: code|filter ids|destination.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"(1, '8')", "'udp:10.1.1.1:9999'", "0||unset"},
        {"(1, '7'), (2, '8'), (3, '7')", "'udp:10.1.1.1:9999'", "1|1,3|udp:10.1.1.1:9999"},
        {"(1, '7')", nullptr, "0|1|unset"},  // filters without a destination are kept
        {"(1, '7')", "''", "-2|1|unset"},
    };
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '7')");
    TraceCapture capture({EXECUTOR});
    for (const auto& c : cases) {
        const std::string filters = std::string(" FROM (VALUES ") + std::get<0>(c) + ") AS f(id, node);";
        db.admin().exec("DELETE FROM nodes_to_filter; DELETE FROM persistent_filter; DELETE FROM system_parameters;"
                        "INSERT INTO persistent_filter SELECT id, 10 + id, 'label' || id, 'INVITE', 'sip:from', "
                        "'sip:to', 'sip:contact', 'req', 'resp', 'agent', 'full'" + filters +
                        "INSERT INTO nodes_to_filter SELECT id, node" + filters);
        if (std::get<1>(c) != nullptr)
            db.admin().exec(std::string("INSERT INTO system_parameters VALUES ('velm', 'system', 'TraceLogger', ") +
                            std::get<1>(c) + ")");
        std::vector<velm::remoteFilter> read;
        std::string destination = "unset", ids;
        int answer = exec.getRemoteFilters(&read, &destination);
        std::sort(read.begin(), read.end(), [](const auto& a, const auto& b) { return a.fid() < b.fid(); });
        for (const auto& f : read)
            ids += (ids.empty() ? "" : ",") + text(f.fid());
        EXPECT_EQ(std::get<2>(c), joined({text(answer), ids, destination}));
    }
    EXPECT_TRUE(capture.contains(EXECUTOR, "tarn.system_parameters velm/system/TraceLogger destination null or "
                                           "empty."));
    std::vector<velm::remoteFilter> read;
    std::string destination;
    ASSERT_EQ(-2, exec.getRemoteFilters(&read, &destination));
    const velm::remoteFilter& f = read.at(0);
    EXPECT_EQ("1|11|label1|INVITE|sip:from|sip:to|sip:contact|req|resp|agent|full",
              joined({text(f.fid()), text(f.trid()), f.label(), f.methods(), f.from(), f.to(), f.contact(),
                      f.request(), f.response(), f.useragent(), f.type()}));
    db.admin().exec("DROP TABLE nodes_to_filter");
    EXPECT_EQ(-1, exec.getRemoteFilters(&read, &destination));
    EXPECT_TRUE(holds(exec.getErrorMessage(), "nodes_to_filter"));
}

TEST_F(ConfigurationCommands, OldEventNotificationsAreDeleted) {
    db.admin().exec("INSERT INTO event_notify (evt_type, evt_timestamp) VALUES "
                    "('old', now() - interval '61 seconds'), ('older', now() - interval '1 hour'), "
                    "('recent', now() - interval '50 seconds'), ('new', now())");
    ASSERT_TRUE(exec.delOldEventNotify().okay());
    EXPECT_EQ("new,recent", db.admin().value("SELECT string_agg(evt_type, ',' ORDER BY evt_type) FROM event_notify"));
}

TEST_F(ConfigurationCommands, OneAggregatorByItsId) {
    db.admin().exec(AGGREGATOR_ROWS);
    velm::SipEventAggregator found;
    found.setName("untouched");
    // The id runs into the following "and": PostgreSQL 15 refuses "5and".
    DatabaseResult result = exec.getSipEventAggregator("5", found);
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(holds(result.getErrorMessage(), "sea.id=5and sea.sid=cs.sid and cs.csid=c.csid;"));
    EXPECT_TRUE(exec.getSipEventAggregator("6 ", found).okay());
    EXPECT_EQ("untouched", found.name());
    // An id that ends in a blank gets the first of its rows.
    ASSERT_TRUE(exec.getSipEventAggregator("5 ", found).okay());
    EXPECT_EQ("5|20|3|200|rls|buddies|from|to|presence|pidf|40|15|sip:agg@10.0.0.1", aggregator(found));
}

TEST_F(ConfigurationCommands, AddressMapTimesAreReadInTheCtimeLayoutAsLocalTime) {
    // ctime() pads a one-digit day with a second blank; other layouts, an
    // unknown month and years beyond any calendar read as 0.
    auto ctimeText = [](time_t when) {
        std::string text = std::ctime(&when);
        return "'" + text.substr(0, text.size() - 1) + "'";
    };
    const std::pair<std::string, long> times[] = {
        {ctimeText(1794810045), 1794810045}, {ctimeText(1772712045), 1772712045}, {"NULL", 0},
        {"'2026-11-15 06:20:45'", 0}, {"'Sun nov 15 06:20:45 2026'", 0}, {"'Sun Nov 15 06:20:45 2026 extra'", 0},
        {"'Sun December 15 06:20:45 2026'", 0}, {"'Fri Dec 31 23:59:59 2147483648'", 0},
        {"'Fri Dec 31 23:59:59 99999999999999999999'", 0}, {"DEFAULT", -1}};
    db.admin().exec("INSERT INTO contact_set (csid) VALUES (10)");
    int priority = 0;
    for (const auto& t : times)
        db.admin().exec("INSERT INTO address_map (handle, csid, pattern, modification_time, priority) VALUES ('h', "
                        "10, '.*', " + t.first + ", " + text(priority++) + ")");
    time_t before = std::time(nullptr);
    std::vector<velm::AddressMapRecord> maps;
    ASSERT_TRUE(exec.getAddressMaps(maps).okay()) << exec.getErrorMessage();
    ASSERT_EQ(priority, static_cast<int>(maps.size()));
    for (int i = 0; i < priority - 1; ++i)
        EXPECT_EQ(times[i].second, maps[i].modTime()) << times[i].first;
    // A row written without a time carries its insertion time; the server's
    // clock and zone are this machine's.
    EXPECT_TRUE(maps.back().modTime() <= before && maps.back().modTime() >= before - 60) << maps.back().modTime();
}

TEST_F(ConfigurationCommands, PrefixMapCounterRisesWithEveryChangeAndIsZeroWithoutItsRow) {
    db.admin().exec("INSERT INTO contact_set (csid) VALUES (10)");
    std::vector<int> counters;
    for (const char* change : {"SELECT 1", "INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('1', 10, 4)",
                               "INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('2', 10, 4)",
                               "DELETE FROM prefix_map WHERE prefix = '1'",
                               "UPDATE trigger_notify SET update_ctr = 9 WHERE table_name = 'prefix_map'",
                               "DELETE FROM trigger_notify WHERE table_name = 'prefix_map'"}) {
        db.admin().exec(change);
        int value = -1;
        ASSERT_TRUE(exec.checkPrefixMap(&value).okay()) << exec.getErrorMessage();
        counters.push_back(value);
    }
    EXPECT_TRUE(counters[0] < counters[1] && counters[1] < counters[2] && counters[2] < counters[3]);
    EXPECT_EQ((std::vector<int>{9, 0}), std::vector<int>(counters.begin() + 4, counters.end()));
    db.admin().exec("DROP TABLE trigger_notify CASCADE");
    int value = 42;
    EXPECT_TRUE(exec.checkPrefixMap(&value).queryError());
    EXPECT_EQ(42, value);
}
