// The visiting-user table and this node's id.
#include "DatabaseCommandExecutor.h"
#include "Registrations.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const long VISIT = 28800;

class VisitingUsers : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage(); }

    void visitor(int sid, long expires) {
        db.admin().exec("INSERT INTO replica_extra (packet_type, id, expires) VALUES ('subscriber', " +
                        std::to_string(sid) + ", " + std::to_string(expires) + ")");
    }

    long expiryOf(int sid) {
        return std::atol(
            db.admin().value("SELECT expires FROM replica_extra WHERE id = " + std::to_string(sid)).c_str());
    }

    int rowsOf(int sid) {
        return std::atoi(
            db.admin().value("SELECT count(*) FROM replica_extra WHERE id = " + std::to_string(sid)).c_str());
    }

    void nodeId(const std::string& value) {
        db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', " + value + ")");
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(VisitingUsers, HomeNodeIdIsTheReplicaIdAndZeroOrNullIsAQueryError) {
    int id = -1;
    EXPECT_TRUE(exec.getHomeNode_id(id).notFound());
    EXPECT_EQ(-1, id);
    // The zero is read back before it is refused; a missing value never is.
    const std::pair<const char*, const char*> invalid[] = {{"NULL", "returned NULL homeNode_id"},
                                                           {"'0'", "returned zero home node_id"}};
    for (const auto& c : invalid) {
        SCOPED_TRACE(c.first);
        db.admin().exec("DELETE FROM local_parameters");
        nodeId(c.first);
        DatabaseResult result = exec.getHomeNode_id(id);
        EXPECT_TRUE(result.queryError());
        EXPECT_EQ(c.second, result.getErrorMessage());
        if (c.first == std::string("NULL")) {
            EXPECT_EQ(-1, id);
        }
    }
    db.admin().exec("DELETE FROM local_parameters");
    nodeId("'17'");
    ASSERT_TRUE(exec.getHomeNode_id(id).okay());
    EXPECT_EQ(17, id);
}

TEST(VisitingUsersUnconnected, SidZeroIsABadParameterBeforeAnyDatabaseAccess) {
    DatabaseCommandExecutor exec;
    bool known = true;
    DatabaseResult result = exec.hasVisitingUserSubscriberId(0, known);
    EXPECT_TRUE(result.badParameter());
    EXPECT_EQ("VUsid = 0", result.getErrorMessage());
    EXPECT_FALSE(known);
    // Any other sid needs the database.
    EXPECT_TRUE(exec.hasVisitingUserSubscriberId(5, known).connectionError());
    EXPECT_TRUE(exec.addVisitingUser(5).connectionError());
}

TEST_F(VisitingUsers, KnownAndUnknownVisitors) {
    visitor(42, std::time(nullptr) + 100);
    bool known = false;
    ASSERT_TRUE(exec.hasVisitingUserSubscriberId(42, known).okay());
    EXPECT_TRUE(known);
    DatabaseResult result = exec.hasVisitingUserSubscriberId(43, known);
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ("not present in replica_extra table", result.getErrorMessage());
    EXPECT_FALSE(known);
}

TEST_F(VisitingUsers, NewVisitorIsKeptForEightHours) {
    time_t before = std::time(nullptr);
    ASSERT_TRUE(exec.addVisitingUser(42).okay()) << exec.getErrorMessage();
    time_t after = std::time(nullptr);
    EXPECT_EQ("subscriber", db.admin().value("SELECT packet_type FROM replica_extra WHERE id = 42"));
    EXPECT_GE(expiryOf(42), before + VISIT);
    EXPECT_LE(expiryOf(42), after + VISIT);
    bool known = false;
    EXPECT_TRUE(exec.hasVisitingUserSubscriberId(42, known).okay());
    EXPECT_TRUE(known);
}

TEST_F(VisitingUsers, AddingAKnownVisitorChangesNothing) {
    long expires = std::time(nullptr) + 60;
    visitor(42, expires);
    EXPECT_TRUE(exec.addVisitingUser(42).okay());
    EXPECT_EQ(1, rowsOf(42));
    EXPECT_EQ(expires, expiryOf(42));
}

TEST_F(VisitingUsers, AddingPassesOnALookupFailure) {
    db.admin().exec("ALTER TABLE replica_extra RENAME TO replica_extra_old");
    DatabaseResult result = exec.addVisitingUser(42);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("replica_extra"));
    EXPECT_TRUE(exec.addVisitingUser(0).badParameter());
}

TEST_F(VisitingUsers, DeletingAVisitor) {
    visitor(42, std::time(nullptr) + 100);
    visitor(43, std::time(nullptr) + 100);
    ASSERT_TRUE(exec.deleteVisitingUser(42).okay());
    EXPECT_EQ(0, rowsOf(42));
    EXPECT_EQ(1, rowsOf(43));
    DatabaseResult again = exec.deleteVisitingUser(42);
    EXPECT_TRUE(again.notFound());
    EXPECT_EQ("not present in replica_extra table", again.getErrorMessage());
}

TEST_F(VisitingUsers, TimerMovesANearExpiryLaterButNeverShortensOne) {
    velmtest::provisionAddress(db, 42, "roamer", "visited.example.com");
    time_t now = std::time(nullptr);
    visitor(42, now + 600);
    ASSERT_TRUE(exec.updateTimer("roamer", "visited.example.com", 3600).okay()) << exec.getErrorMessage();
    EXPECT_GE(expiryOf(42), now + 3600);
    EXPECT_LE(expiryOf(42), std::time(nullptr) + 3600);

    long expires = std::time(nullptr) + 5 * 3600;
    db.admin().exec("UPDATE replica_extra SET expires = " + std::to_string(expires) + " WHERE id = 42");
    velmtest::TraceCapture capture({"DatabaseCommandExecutor"});
    ASSERT_TRUE(exec.updateTimer("roamer", "visited.example.com", 3600).okay());
    EXPECT_EQ(expires, expiryOf(42));
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor", "updateTimer: no update for roamer@visited.example.com"));
}

TEST(VisitingUsersUnconnected, TimerWithoutTimeLeavesTheDatabaseAlone) {
    DatabaseCommandExecutor unconnected;
    EXPECT_TRUE(unconnected.updateTimer("roamer", "visited.example.com", 0).okay());
    EXPECT_TRUE(unconnected.updateTimer(nullptr, nullptr, -5).okay());
    DatabaseResult result = unconnected.updateTimer("roamer", "visited.example.com", 60);
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("updateTimer ConnectionError", result.getErrorMessage());
}

TEST_F(VisitingUsers, TimerNeedsHandleAndDomain) {
    DatabaseResult result = exec.updateTimer(nullptr, "visited.example.com", 60);
    EXPECT_TRUE(result.badParameter());
    EXPECT_EQ("missing parameters", result.getErrorMessage());
    EXPECT_TRUE(exec.updateTimer("roamer", nullptr, 60).badParameter());
}

TEST_F(VisitingUsers, TimerOfAnAddressWithoutVisitorIsNotFound) {
    velmtest::provisionAddress(db, 42, "resident", "visited.example.com");
    velmtest::TraceCapture capture({"DatabaseCommandExecutor"});
    DatabaseResult result = exec.updateTimer("resident", "visited.example.com", 60);
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ("sid not found in replica_extra table ", result.getErrorMessage());
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor",
                                 "updateTimer: no subscrinber id for handle=resident & domain=visited.example.com"));
}
