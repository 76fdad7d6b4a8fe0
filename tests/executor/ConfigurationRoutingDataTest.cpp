// Reading the routing data: digit prefix maps, address maps and the change
// counter that tells the servers to reload the prefix map.
#include "AddressMapRecord.h"
#include "DatabaseCommandExecutor.h"
#include "PrefixMapRecord.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

class RoutingData : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        // Gateway contact sets belong to no subscriber.
        db.admin().exec("INSERT INTO contact_set (csid, ordering, replace_uri) VALUES "
                        "(10, 'sequential', true), (11, 'cycle', false), (12, 'sequential', NULL)");
    }

    int counter() {
        int value = -1;
        DatabaseResult result = exec.checkPrefixMap(&value);
        EXPECT_TRUE(result.okay()) << result.getErrorMessage();
        return value;
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

// The text ctime() gives, without its line end.
std::string ctimeText(time_t when) {
    std::string text = std::ctime(&when);
    text.pop_back();
    return text;
}

} // namespace

TEST_F(RoutingData, PrefixMapsAreAppendedWithTheirNumbers) {
    db.admin().exec("INSERT INTO prefix_map (prefix, csid, total_length) VALUES "
                    "('0049', 10, 12), ('0033', 11, 11), (NULL, 12, 0)");
    std::vector<velm::PrefixMapRecord> maps(1);
    ASSERT_TRUE(exec.getPrefixMaps(maps).okay());
    ASSERT_EQ(4u, maps.size());
    EXPECT_EQ(-1, maps[0].csid());
    std::sort(maps.begin() + 1, maps.end(),
              [](const velm::PrefixMapRecord& a, const velm::PrefixMapRecord& b) { return a.csid() < b.csid(); });
    EXPECT_EQ("0049", maps[1].prefix());
    EXPECT_EQ(10, maps[1].csid());
    EXPECT_EQ(12, maps[1].total_length());
    EXPECT_EQ("0033", maps[2].prefix());
    EXPECT_EQ(11, maps[2].total_length());
    EXPECT_EQ("", maps[3].prefix());
    EXPECT_EQ(12, maps[3].csid());
}

TEST_F(RoutingData, AddressMapsComeByPriorityWithTheirSetsSettings) {
    time_t modified = 1794810045;
    db.admin().exec("INSERT INTO address_map (handle, csid, pattern, modification_time, priority) VALUES "
                    "('late', 11, '^sip:9.*', '" +
                    ctimeText(modified) +
                    "', 30), "
                    "('early', 10, '^sip:1.*', NULL, 5), "
                    "('middle', 12, '^sip:5.*', '2026-11-15 06:20:45', 20)");
    std::vector<velm::AddressMapRecord> maps;
    ASSERT_TRUE(exec.getAddressMaps(maps).okay());
    ASSERT_EQ(3u, maps.size());

    EXPECT_EQ("early", maps[0].handle());
    EXPECT_EQ(10, maps[0].csid());
    EXPECT_EQ("^sip:1.*", maps[0].pattern());
    EXPECT_EQ(5, maps[0].priority());
    EXPECT_EQ("sequential", maps[0].ordering());
    EXPECT_TRUE(maps[0].replaceUri());
    EXPECT_EQ(0, maps[0].modTime());

    // A set that does not say whether to replace the request URI replaces it.
    EXPECT_EQ("middle", maps[1].handle());
    EXPECT_TRUE(maps[1].replaceUri());
    EXPECT_EQ(0, maps[1].modTime());

    EXPECT_EQ("late", maps[2].handle());
    EXPECT_EQ("cycle", maps[2].ordering());
    EXPECT_FALSE(maps[2].replaceUri());
    EXPECT_EQ(30, maps[2].priority());
    EXPECT_EQ(modified, maps[2].modTime());
}

TEST_F(RoutingData, AddressMapsWrittenWithoutATimeCarryTheirInsertionTime) {
    time_t before = std::time(nullptr);
    db.admin().exec("INSERT INTO address_map (handle, csid, pattern) VALUES ('now', 10, '.*')");
    std::vector<velm::AddressMapRecord> maps;
    ASSERT_TRUE(exec.getAddressMaps(maps).okay());
    ASSERT_EQ(1u, maps.size());
    // The server's clock and zone are this machine's.
    EXPECT_GE(maps[0].modTime(), before - 1);
    EXPECT_LE(maps[0].modTime(), std::time(nullptr) + 1);
}

TEST_F(RoutingData, PrefixMapCounterRisesWithEveryChange) {
    int start = counter();
    db.admin().exec("INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('1', 10, 4)");
    int afterInsert = counter();
    EXPECT_GT(afterInsert, start);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('2', 10, 4)");
    db.admin().exec("DELETE FROM prefix_map WHERE prefix = '1'");
    EXPECT_GT(counter(), afterInsert + 1);
}

TEST_F(RoutingData, PrefixMapCounterWithoutItsRowIsZero) {
    db.admin().exec("UPDATE trigger_notify SET update_ctr = 9 WHERE table_name = 'prefix_map'");
    EXPECT_EQ(9, counter());
    db.admin().exec("DELETE FROM trigger_notify WHERE table_name = 'prefix_map'");
    int value = -1;
    ASSERT_TRUE(exec.checkPrefixMap(&value).okay());
    EXPECT_EQ(0, value);
}

TEST_F(RoutingData, RoutingReadsReportAMissingTable) {
    db.admin().exec("DROP TABLE address_map");
    db.admin().exec("DROP TABLE trigger_notify CASCADE");
    std::vector<velm::AddressMapRecord> maps;
    DatabaseResult result = exec.getAddressMaps(maps);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("address_map"));
    int value = 42;
    EXPECT_TRUE(exec.checkPrefixMap(&value).queryError());
    EXPECT_EQ(42, value);
}
