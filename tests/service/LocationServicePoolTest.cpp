#include "AlarmCapture.h"
#include "AppProperties.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "QueryResultPtr.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <set>
#include <thread>

using velm::AppProperties;
using velm::DatabaseCommandExecutor;
using velm::LocationService;
using velm::LocationServicePool;

namespace {

// Points new instances at the test's database.
void configureDatabase(const velmtest::TestDatabase& db) {
    velmtest::server();
    AppProperties::set("Database", "ProxyDatabaseUser", "velm");
    AppProperties::set("Services", "velm.sip.db", db.name().c_str());
}

int backendPid(LocationService& service) {
    velm::QueryResultPtr rows;
    EXPECT_TRUE(service.m_exec->execute("SELECT pg_backend_pid()", rows).okay());
    return std::atoi(rows.getValue(0, 0));
}

std::set<int> liveBackends(velmtest::TestDatabase& db) {
    std::set<int> pids;
    for (const auto& row : db.admin().query("SELECT pid FROM pg_stat_activity WHERE datname = '" + db.name() +
                                            "' AND pid <> pg_backend_pid()"))
        pids.insert(std::atoi(row[0].c_str()));
    return pids;
}

} // namespace

TEST(LocationServicePool, EachThreadGetsItsOwnConnectedInstance) {
    velmtest::TestDatabase db;
    configureDatabase(db);
    LocationServicePool pool("workers");

    LocationService* mine = pool.getConnection();
    ASSERT_NE(nullptr, mine);
    LocationService* theirs = nullptr;
    std::thread([&] { theirs = pool.getConnection(); }).join();
    ASSERT_NE(nullptr, theirs);
    EXPECT_NE(mine, theirs);
    EXPECT_TRUE(pthread_equal(pthread_self(), mine->m_threadId));
    EXPECT_NE(backendPid(*mine), backendPid(*theirs));

    velmtest::TraceCapture capture({"LocationService"});
    EXPECT_EQ(mine, pool.getConnection());
    // A known thread only hears that its instance is reused.
    EXPECT_EQ(std::vector<std::string>{"pool workers: using existing connection"}, capture.lines("LocationService"));
    pool.releaseConnections();
}

TEST(LocationServicePool, NewInstanceIsTracedWithItsThreadIdAndTheCount) {
    velmtest::TestDatabase db;
    configureDatabase(db);
    LocationServicePool pool("p");
    velmtest::TraceCapture capture({"LocationService"});
    pool.getConnection();

    char id[32];
    std::snprintf(id, sizeof id, "%xl", static_cast<unsigned>(pthread_self()));
    std::vector<std::string> lines;
    for (const auto& line : capture.lines("LocationService"))
        if (line.rfind("LocationServicePool::", 0) == 0 || line.rfind("pool ", 0) == 0)
            lines.push_back(line);
    std::vector<std::string> expected = {
        std::string("LocationServicePool::getConnection() creating new connection: threadid=") + id + "\n",
        std::string("LocationServicePool::getConnection() creating new connection: threadid=") + id +
            ", Total conn: 1\n",
        "pool p: using existing connection"};
    EXPECT_EQ(expected, lines);
    pool.releaseConnections();
}

TEST(LocationServicePool, ReleaseClosesTheNewestInstanceFirst) {
    velmtest::TestDatabase db;
    configureDatabase(db);
    LocationServicePool pool("ordered");
    // The threads stay alive until all have asked: a finished thread's id may
    // be reused by the next one, which would then find its instance.
    std::vector<int> pids;
    std::promise<void> done;
    std::shared_future<void> finished = done.get_future().share();
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        std::promise<int> pid;
        std::future<int> asked = pid.get_future();
        threads.emplace_back([&pool, pid = std::move(pid), finished]() mutable {
            pid.set_value(backendPid(*pool.getConnection()));
            finished.wait();
        });
        pids.push_back(asked.get());
    }
    done.set_value();
    for (auto& thread : threads)
        thread.join();
    ASSERT_EQ(3u, std::set<int>(pids.begin(), pids.end()).size());

    // At each "releasing database connection..." the instances released before
    // it are gone; wait for their backends to end and see which one went.
    struct Watch : velm::TraceSink {
        velmtest::TestDatabase* db;
        std::vector<std::set<int>> snapshots;
        void write(const char*, const char* text) override {
            if (std::string(text) != "releasing database connection...")
                return;
            size_t expected = 3 - snapshots.size();
            std::set<int> live;
            for (int attempt = 0; attempt < 500; ++attempt) {
                live = liveBackends(*db);
                if (live.size() <= expected)
                    break;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            snapshots.push_back(live);
        }
    } watch;
    watch.db = &db;
    velm::Trace::enable("LocationService", true);
    velm::Trace::setSink(&watch);
    pool.releaseConnections();
    velm::Trace::setSink(nullptr);
    velm::Trace::enable("LocationService", false);

    ASSERT_EQ(3u, watch.snapshots.size());
    EXPECT_EQ((std::set<int>{pids[0], pids[1], pids[2]}), watch.snapshots[0]);
    EXPECT_EQ((std::set<int>{pids[0], pids[1]}), watch.snapshots[1]);
    EXPECT_EQ((std::set<int>{pids[0]}), watch.snapshots[2]);
}

TEST(LocationServicePool, ReleasingAnEmptyPoolOnlySaysSo) {
    LocationServicePool pool;
    velmtest::TraceCapture capture({"LocationService"});
    pool.releaseConnections();
    EXPECT_EQ(std::vector<std::string>{"releasing 0 database connections from pool "},
              capture.lines("LocationService"));
}

TEST(LocationServicePool, SingletonLivesFromInstanceToDestroy) {
    LocationServicePool* pool = LocationServicePool::Instance();
    ASSERT_NE(nullptr, pool);
    EXPECT_EQ(pool, LocationServicePool::Instance());
    pool->setHomeNode_id(7);
    EXPECT_EQ(7, LocationServicePool::Instance()->getHomeNode_id());
    LocationServicePool::destroy();
    LocationServicePool::destroy();
    EXPECT_EQ(0, LocationServicePool::Instance()->getHomeNode_id());
    LocationServicePool::destroy();
}

TEST(LocationServicePool, FailedConnectAlarmsAndTheInstanceStaysPooled) {
    velmtest::server();
    AppProperties::set("Database", "ProxyDatabaseUser", "velm");
    AppProperties::set("Services", "velm.sip.db", "no_such_database");
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture({"LocationService"});
    LocationServicePool pool("failing");

    LocationService* service = pool.getConnection();
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(std::vector<std::string>{"database failure - connect"}, alarms.texts("zuVELMProxyDBAccessFailed"));
    bool traced = false;
    for (const auto& line : capture.lines("LocationService"))
        traced = traced || (line.rfind("connect failed: ", 0) == 0 && line.find("no_such_database") != std::string::npos);
    EXPECT_TRUE(traced);

    EXPECT_EQ(service, pool.getConnection());
    velm::DatabaseResult result = service->executeCmd("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    ASSERT_EQ(2u, alarms.alarms().size());
    EXPECT_EQ("database failure - executeCmd. " + result.getErrorMessage(), alarms.alarms()[1].second);
    pool.releaseConnections();
}
