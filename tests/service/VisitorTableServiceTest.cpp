// The location service's operations on recorded visitors.
#include "AlarmCapture.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

using velm::DatabaseResult;
using velm::LocationService;

namespace {

class VisitorService : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay()); }

    void visitor(int sid, long expires) {
        db.admin().exec("INSERT INTO replica_extra (packet_type, id, expires) VALUES ('subscriber', " +
                        std::to_string(sid) + ", " + std::to_string(expires) + ")");
    }

    std::string visitors() { return db.admin().value("SELECT string_agg(id::text, ',' ORDER BY id) FROM replica_extra"); }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture traces{{"LocationService"}};
    LocationService service;
};

} // namespace

TEST_F(VisitorService, HomeIsFalseOnlyForARecordedVisitor) {
    visitor(5, std::time(nullptr) + 600);
    bool home = true;
    EXPECT_TRUE(service.isSubscriberHome(5, home).okay());
    EXPECT_FALSE(home);
    EXPECT_TRUE(traces.contains("LocationService", "subscriber 5 is visiting"));
    EXPECT_TRUE(service.isSubscriberHome(6, home).okay());
    EXPECT_TRUE(home);
    EXPECT_TRUE(service.isSubscriberHome(0, home).badParameter());
    EXPECT_FALSE(home);
}

TEST_F(VisitorService, RemovingExpiredVisitorsKeepsTheLiveOnes) {
    EXPECT_TRUE(service.removeExpiredVisitingUsers().okay());
    EXPECT_TRUE(traces.contains("LocationService", "no rows to remove from visiting users"));
    for (const std::string& line : traces.lines("LocationService"))
        EXPECT_EQ(std::string::npos, line.find("DELETE")) << line;

    long now = std::time(nullptr);
    visitor(1, now - 10);
    visitor(2, now + 600);
    visitor(3, now - 1);
    EXPECT_TRUE(service.removeExpiredVisitingUsers().okay());
    EXPECT_EQ("2", visitors());
    EXPECT_TRUE(traces.contains("LocationService", "removed -2  expired visiting users"));
}

TEST_F(VisitorService, TheTimerOfAVisitorGivenInAnyCaseMovesLater) {
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(9);
    provisioning.contactSet(9, 9);
    provisioning.publicAddress(9, "o'neil", "visited.example.com", 9, true);
    long now = std::time(nullptr);
    visitor(9, now + 60);
    EXPECT_TRUE(service.updateTimer("O'Neil", "Visited.example.com", 3600).okay());
    long expires = std::stol(db.admin().value("SELECT expires FROM replica_extra WHERE id = 9"));
    EXPECT_GE(expires, now + 3600);
    EXPECT_TRUE(service.updateTimer(nullptr, "visited.example.com", 3600).badParameter());
}

TEST_F(VisitorService, RecordingAndDeletingThroughTheService) {
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '4')");
    int node = 0;
    EXPECT_TRUE(service.getHomeNode_id(node).okay());
    EXPECT_EQ(4, node);
    EXPECT_TRUE(service.addVisitingUser(8).okay());
    EXPECT_EQ("8", visitors());
    EXPECT_TRUE(service.deleteVisitingUser(8).okay());
    EXPECT_TRUE(service.deleteVisitingUser(8).notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(VisitorService, DatabaseFailuresRaiseTheOperationsAlarms) {
    visitor(1, std::time(nullptr) - 10);
    db.admin().exec("ALTER TABLE replica_extra RENAME TO replica_extra_gone");
    db.admin().exec("ALTER TABLE local_parameters RENAME TO local_parameters_gone");
    bool home = false;
    int node = 0;
    DatabaseResult results[] = {service.isSubscriberHome(1, home), service.addVisitingUser(1),
                                service.deleteVisitingUser(1), service.getHomeNode_id(node),
                                service.removeExpiredVisitingUsers()};
    for (const DatabaseResult& result : results)
        EXPECT_TRUE(result.queryError());
    const char* expected[] = {"isSubscriberHome", "addVisitingUser", "deleteVisitingUser", "getHomeNode_id",
                              "removeExpiredVisitingUsers_1"};
    auto raised = alarms.texts("zuVELMProxyDBAccessFailed");
    ASSERT_EQ(std::size(expected), raised.size());
    for (size_t i = 0; i < raised.size(); ++i)
        EXPECT_EQ(0u, raised[i].find(std::string("database failure - ") + expected[i] + ". ")) << raised[i];
}

TEST(VisitorServiceUnconnected, EveryOperationReportsTheMissingConnection) {
    LocationService service;
    bool home = true;
    int node = -1;
    DatabaseResult results[] = {service.isSubscriberHome(1, home), service.addVisitingUser(1),
                                service.deleteVisitingUser(1), service.getHomeNode_id(node),
                                service.updateTimer("a", "b", 60), service.removeExpiredVisitingUsers()};
    for (const DatabaseResult& result : results)
        EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_EQ(-1, node);
}
