#include "AlarmCapture.h"
#include "AppProperties.h"
#include "LocationService.h"
#include "PrefixMapRecord.h"
#include "Provisioning.h"
#include "SafeLock.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using velm::AppProperties;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

struct Row {
    const char* prefix;
    int csid;
    int totalLength;
};

struct TreeCase {
    const char* what;
    std::vector<Row> rows;
    // user -> csid the walk leaves, starting from 0
    std::vector<std::pair<const char*, int>> lookups;
};

} // namespace

class PrefixTree : public testing::Test {
protected:
    void SetUp() override {
        velmtest::server();
        AppProperties::set("Database", "ProxyDatabaseUser", "velm");
        AppProperties::set("Services", "velm.sip.db", db.name().c_str());
        service.reset(LocationService::getConnection());
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(1);
        for (int csid = 2; csid <= 9; ++csid)
            provisioning.contactSet(csid, 1);
    }
    void TearDown() override { service->destroyPrefixmap(); }

    // A freshly filled table, rows in the given order.
    void fill(const std::vector<Row>& rows) {
        db.admin().exec("TRUNCATE prefix_map");
        for (const Row& row : rows)
            db.admin().exec(std::string("INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('") + row.prefix +
                            "', " + std::to_string(row.csid) + ", " + std::to_string(row.totalLength) + ")");
    }

    int find(const char* user, int start = 0) {
        return osk::withCancelSafeLock(LocationService::m_mutexPrefix, [&] {
            int csid = start;
            service->findPrefix(user, csid, 0, LocationService::m_prefixMap);
            return csid;
        });
    }

    velmtest::TestDatabase db;
    std::unique_ptr<LocationService> service;
};

TEST_F(PrefixTree, TheWalkLeavesTheCsidOfTheDeepestMatchingNode) {
    const TreeCase cases[] = {
        {"a leaf ends the walk", {{"9", 3, 0}}, {{"9123", 3}, {"9", 3}, {"8", 0}}},
        {"a longer prefix wins below a shorter one", {{"9", 3, 0}, {"91", 4, 0}}, {{"92", 3}, {"91", 4}, {"9", 3}, {"912", 4}}},
        {"an inner node on the way sets the csid back",
         {{"12", 5, 0}, {"1234", 7, 0}},
         {{"123", 0}, {"12345", 7}, {"12", 5}, {"1", 0}}},
        {"a shorter prefix added later marks the inner node",
         {{"1234", 7, 0}, {"12", 5, 0}},
         {{"12", 5}, {"123", 0}, {"1234", 7}}},
        {"a total length must equal the user's", {{"555", 8, 7}}, {{"5551234", 8}, {"555123", 0}, {"55512345", 0}}},
        {"a node of another length neither sets nor resets",
         {{"5", 2, 0}, {"55", 6, 4}},
         {{"551", 2}, {"5512", 6}, {"55", 2}}},
        {"the later of two equal prefixes wins", {{"7", 3, 0}, {"7", 4, 0}}, {{"7", 4}, {"70", 4}}},
        {"the later row's length wins too", {{"8", 4, 0}, {"8", 3, 5}}, {{"8", 0}, {"81234", 3}}},
        {"an empty prefix matches only an empty user", {{"", 3, 0}, {"4", 4, 0}}, {{"", 3}, {"1", 0}, {"4", 4}}},
    };
    for (const TreeCase& c : cases) {
        SCOPED_TRACE(c.what);
        fill(c.rows);
        ASSERT_TRUE(service->recreatePrefixMap().okay());
        for (const auto& lookup : c.lookups)
            EXPECT_EQ(lookup.second, find(lookup.first)) << "user " << lookup.first;
    }
    // Where even the first digit matches nothing, the csid is left alone.
    EXPECT_EQ(42, find("9", 42));
}

TEST_F(PrefixTree, OnlyARecreateOrDestroyReplacesTheTree) {
    fill({{"9", 3, 0}});
    ASSERT_TRUE(service->createPrefixMap().okay());
    velm::PrefixMap* first = LocationService::m_prefixMap;
    ASSERT_NE(nullptr, first);

    fill({{"8", 4, 0}});
    EXPECT_TRUE(service->createPrefixMap().okay());
    EXPECT_EQ(first, LocationService::m_prefixMap);
    EXPECT_EQ(3, find("9"));
    EXPECT_EQ(0, find("8"));

    EXPECT_TRUE(service->recreatePrefixMap().okay());
    EXPECT_EQ(0, find("9"));
    EXPECT_EQ(4, find("8"));

    service->destroyPrefixmap();
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
    service->destroyPrefixmap();
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
}

TEST_F(PrefixTree, AFailedBuildLeavesNoTree) {
    fill({{"9", 3, 0}});
    ASSERT_TRUE(service->createPrefixMap().okay());
    db.admin().exec("DROP TABLE prefix_map");
    velmtest::AlarmCapture alarms;

    DatabaseResult result = service->recreatePrefixMap();
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
    auto texts = alarms.texts("zuVELMProxyDBAccessFailed");
    ASSERT_EQ(1u, texts.size());
    EXPECT_EQ("database failure - createPrefix. " + result.getErrorMessage(), texts[0]);

    // Without a connection: the guard's answer, no alarm, still no tree.
    LocationService unconnected;
    result = unconnected.createPrefixMap();
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
    EXPECT_EQ(1u, alarms.alarms().size());
}

TEST_F(PrefixTree, RowsAndChangeCounterComeFromTheDatabase) {
    int counter = -1;
    ASSERT_TRUE(service->checkPrefixMap(&counter).okay());
    EXPECT_EQ(0, counter);
    fill({{"9", 3, 0}, {"91", 4, 8}});
    ASSERT_TRUE(service->checkPrefixMap(&counter).okay());
    EXPECT_EQ(3, counter) << "the truncate and both inserts raise it";

    std::vector<velm::PrefixMapRecord> maps;
    ASSERT_TRUE(service->getPrefixMap(maps).okay());
    ASSERT_EQ(2u, maps.size());
    EXPECT_EQ("91", maps[1].prefix());
    EXPECT_EQ(4, maps[1].csid());
    EXPECT_EQ(8, maps[1].total_length());

    EXPECT_TRUE(service->checkPrefixMap(nullptr).badParameter());

    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture({"LocationService"});
    db.admin().exec("DROP TABLE trigger_notify");
    DatabaseResult result = service->checkPrefixMap(&counter);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ(std::vector<std::string>{"database failure - checkPrefixMap. " + result.getErrorMessage()},
              alarms.texts("zuVELMProxyDBAccessFailed"));
    EXPECT_TRUE(capture.contains("LocationService", "checking of prefix_map failed"));
}
