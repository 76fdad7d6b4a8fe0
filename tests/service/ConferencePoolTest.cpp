// Reserving conference bridge extensions from the pool and counting it.
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velmtest::TestDatabase;

namespace {

const char* const NO_BRIDGE = "*** ERROR ***: Failed to find and reserve an IDLE Conference Bridge Extension!";

class ConferencePool : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        // alice is behind trunk 1, bob behind trunk 2, which has no bridges.
        db.admin().exec("INSERT INTO acp (acp_id, name) VALUES (1, 'trunk1'), (2, 'trunk2'), (3, 'trunk3')");
        db.admin().exec("INSERT INTO subscriber (sid, auth_user_id) VALUES (1, 'alice'), (2, 'bob')");
        db.admin().exec("INSERT INTO extension (extension, sid, acp_id, ext_type) VALUES "
                        "('100', 1, 1, 'u'), ('200', 2, 2, 'u')");
    }

    void bridges(int acp, int first, int count) {
        for (int number = first; number < first + count; ++number)
            db.admin().exec("INSERT INTO extension (extension, acp_id, ext_type) VALUES ('" +
                            std::to_string(number) + "', " + std::to_string(acp) + ", 'c')");
    }

    void state(int extension, const std::string& status) {
        db.admin().exec("INSERT INTO conf_state VALUES (" + std::to_string(extension) + ", '" + status + "')");
    }

    std::string stateOf(const std::string& extension) {
        auto rows = db.admin().query("SELECT conf_status FROM conf_state WHERE extension = " + extension);
        return rows.size() == 1 ? rows[0][0] : "rows: " + std::to_string(rows.size());
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST_F(ConferencePool, BridgeBehindTheUsersOwnTrunkIsPreferred) {
    bridges(3, 8001, 1);
    bridges(1, 7001, 1);
    velmtest::TraceCapture capture({"DatabaseCommandExecutor"});
    std::string extension;
    DatabaseResult result = exec.useOneAvailConfExt("alice", extension);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ("7001", extension);
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor",
                                 "useOneAvailConfExt(): Successfully reserved an IDLE extension= 7001"));
    // Never used before: a new row, committed.
    EXPECT_EQ("IN USE", stateOf("7001"));
    EXPECT_EQ("rows: 0", stateOf("8001"));
}

TEST_F(ConferencePool, UserWithoutABridgeOnItsTrunkGetsAnyFreeOne) {
    bridges(1, 7001, 1);
    state(7001, "IN USE");
    bridges(3, 8001, 1);
    velmtest::TraceCapture capture({"DatabaseCommandExecutor"});
    std::string extension;
    ASSERT_TRUE(exec.useOneAvailConfExt("bob", extension).okay());
    EXPECT_EQ("8001", extension);
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor",
                                 "useOneAvailConfExt(): Successfully reserved from query2 an IDLE extension= 8001"));
    EXPECT_EQ("IN USE", stateOf("8001"));

    // alice's own trunk is full now too.
    ASSERT_TRUE(exec.useOneAvailConfExt("alice", extension).notFound());
}

TEST_F(ConferencePool, IdleBridgeIsTakenBackIntoUse) {
    bridges(1, 7001, 3);
    state(7001, "INVALID");
    state(7002, "IN USE");
    state(7003, "IDLE");
    std::string extension;
    ASSERT_TRUE(exec.useOneAvailConfExt("alice", extension).okay());
    EXPECT_EQ("7003", extension);
    EXPECT_EQ("IN USE", stateOf("7003"));
    EXPECT_EQ("INVALID", stateOf("7001"));
}

TEST_F(ConferencePool, ExhaustedPoolIsNotFoundAndClosesTheTransaction) {
    bridges(1, 7001, 2);
    state(7001, "IN USE");
    state(7002, "INVALID");
    velmtest::TraceCapture capture({"DatabaseConnection", "DatabaseCommandExecutor"});
    std::string extension = "stale";
    DatabaseResult result = exec.useOneAvailConfExt("alice", extension);
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ(NO_BRIDGE, result.getErrorMessage());
    EXPECT_EQ("", extension);
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor",
                                 "useOneAvailConfExt(): *** Failed to reserve an IDLE extension! ***"));
    auto executed = capture.lines("DatabaseConnection");
    auto last = std::find_if(executed.rbegin(), executed.rend(),
                             [](const std::string& line) { return line.rfind("Executing query:", 0) == 0; });
    ASSERT_NE(executed.rend(), last);
    EXPECT_EQ("Executing query: \nEND;\n", *last);

    // The session is out of its transaction.
    velm::QueryResultPtr pid;
    ASSERT_TRUE(exec.execute("SELECT pg_backend_pid()", pid).okay());
    EXPECT_EQ("idle", db.admin().value(std::string("SELECT state FROM pg_stat_activity WHERE pid = ") +
                                       pid.getValue(0, 0)));
}

TEST_F(ConferencePool, ReservationNeedsAUser) {
    bridges(1, 7001, 1);
    std::string extension = "stale";
    DatabaseResult result = exec.useOneAvailConfExt(nullptr, extension);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ("null auth user", result.getErrorMessage());
    EXPECT_EQ("rows: 0", stateOf("7001"));
}

TEST_F(ConferencePool, ConcurrentReservationsNeverShareABridge) {
    const int perThread = 10;
    // Idle rows are updated in place and fresh bridges inserted: both ways
    // must stay exclusive.
    bridges(1, 7001, 2 * perThread);
    for (int number = 7001; number < 7001 + perThread; ++number)
        state(number, "IDLE");

    std::atomic<int> connected{0};
    auto reserve = [this, &connected](std::vector<std::string>& taken, std::vector<std::string>& failures) {
        DatabaseCommandExecutor own;
        bool ready = own.connect(db.name().c_str(), "velm", "pw");
        if (!ready)
            failures.push_back(own.getErrorMessage());
        // Start reserving together.
        ++connected;
        while (connected.load() < 2)
            std::this_thread::yield();
        if (!ready)
            return;
        for (int i = 0; i < perThread; ++i) {
            std::string extension;
            DatabaseResult result = own.useOneAvailConfExt("alice", extension);
            if (result.okay())
                taken.push_back(extension);
            else
                failures.push_back(result.getErrorMessage());
        }
    };
    std::vector<std::string> first, second, firstFailures, secondFailures;
    std::thread a(reserve, std::ref(first), std::ref(firstFailures));
    std::thread b(reserve, std::ref(second), std::ref(secondFailures));
    a.join();
    b.join();

    EXPECT_TRUE(firstFailures.empty()) << firstFailures.front();
    EXPECT_TRUE(secondFailures.empty()) << secondFailures.front();
    std::set<std::string> distinct(first.begin(), first.end());
    distinct.insert(second.begin(), second.end());
    EXPECT_EQ(static_cast<size_t>(2 * perThread), distinct.size());
    EXPECT_EQ(std::to_string(2 * perThread),
              db.admin().value("SELECT count(*) FROM conf_state WHERE conf_status = 'IN USE'"));

    std::string extension;
    EXPECT_TRUE(exec.useOneAvailConfExt("alice", extension).notFound());
}

TEST_F(ConferencePool, CountsFollowTheReservations) {
    bridges(1, 7001, 4);
    bridges(3, 8001, 1);
    state(8001, "INVALID");
    std::map<std::string, unsigned int> count{{DatabaseCommandExecutor::STR_CONF_IDLE, 99}};
    ASSERT_TRUE(exec.confExtCount(count).okay());
    EXPECT_EQ(5u, count[DatabaseCommandExecutor::STR_CONF_TOTAL]);
    EXPECT_EQ(0u, count[DatabaseCommandExecutor::STR_CONF_IN_USE]);
    EXPECT_EQ(1u, count[DatabaseCommandExecutor::STR_CONF_INVALID]);

    std::string extension;
    ASSERT_TRUE(exec.useOneAvailConfExt("alice", extension).okay());
    ASSERT_TRUE(exec.useOneAvailConfExt("bob", extension).okay());
    ASSERT_TRUE(exec.confExtCount(count).okay());
    EXPECT_EQ(5u, count["TOTAL"]);
    EXPECT_EQ(2u, count["IN USE"]);
    EXPECT_EQ(1u, count["INVALID"]);
    // The idle count is the caller's to derive.
    EXPECT_EQ(99u, count["IDLE"]);
    EXPECT_EQ(4u, count.size());
}

TEST_F(ConferencePool, FailingCountLeavesItsKeyAlone) {
    bridges(1, 7001, 3);
    db.admin().exec("DROP TABLE conf_state CASCADE");
    std::map<std::string, unsigned int> count{{"IN USE", 7}};
    DatabaseResult result = exec.confExtCount(count);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("conf_status='INVALID'"));
    EXPECT_EQ(3u, count["TOTAL"]);
    EXPECT_EQ(7u, count["IN USE"]);
    EXPECT_EQ(0u, count.count("INVALID"));
}

TEST(ConferencePoolUnconnected, BothCommandsReportTheMissingConnection) {
    DatabaseCommandExecutor exec;
    std::string extension;
    EXPECT_TRUE(exec.useOneAvailConfExt("alice", extension).connectionError());
    std::map<std::string, unsigned int> count;
    EXPECT_TRUE(exec.confExtCount(count).connectionError());
    EXPECT_TRUE(count.empty());
}
