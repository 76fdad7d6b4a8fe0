// The prefix-map monitor thread: when it rebuilds the tree, how it stops, its failures, and lookups racing its rebuilds.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "PrefixMapMonitor.h"
#include "PrefixMaps.h"
#include "Provisioning.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::LocationService;
using velm::LocationServicePool;
using velm::PrefixMapMonitor;

namespace {

const char* const WOKE = "prefix map thread checking for updates";

} // namespace

// Every test runs in a process of its own, so each starts without monitor,
// pool or tree.
class PrefixMapMonitorThread : public testing::Test {
protected:
    void SetUp() override {
        velmtest::server();
        AppProperties::set("Database", "ProxyDatabaseUser", "velm");
        AppProperties::set("Services", "velm.sip.db", db.name().c_str());
        AppProperties::set("SipServer", "PrefixMapInterval", "1");
        service = LocationServicePool::Instance()->getConnection();
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(1);
        for (int csid = 2; csid <= 5; ++csid)
            provisioning.contactSet(csid, 1);
    }
    // The thread is gone before the captures are.
    void TearDown() override {
        PrefixMapMonitor::destroy();
        service->destroyPrefixmap();
        LocationServicePool::destroy();
    }

    size_t count(const char* channel, const std::string& text) const {
        auto lines = capture.lines(channel);
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
    }
    // Polls `done` for up to a minute: generous for a loaded machine.
    static bool waitFor(const std::function<bool()>& done) {
        for (int attempt = 0; attempt < 3000; ++attempt) {
            if (done())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    // Waits for `n` more wake-ups of the thread. After two, at least one
    // whole check has run since the call.
    void waitCycles(size_t n) {
        size_t target = count("PrefixMapMonitor", WOKE) + n;
        ASSERT_TRUE(waitFor([&] { return count("PrefixMapMonitor", WOKE) >= target; })) << "the thread stopped polling";
    }
    size_t rebuilds() const { return count("LocationService", "createPrefix CALLED\n"); }
    int find(const char* user) { return velmtest::prefixCsid(*service, user); }
    void setCounter(int value) {
        db.admin().exec("UPDATE trigger_notify SET update_ctr = " + std::to_string(value) +
                        " WHERE table_name = 'prefix_map'");
    }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    velmtest::TraceCapture capture{{"PrefixMapMonitor", "LocationService"}};
    LocationService* service = nullptr;
};

TEST_F(PrefixMapMonitorThread, RebuildsOnceForEveryRiseOfTheCounter) {
    ASSERT_TRUE(service->createPrefixMap().okay());
    PrefixMapMonitor::instance();
    waitCycles(1);
    EXPECT_TRUE(capture.contains("PrefixMapMonitor", "using prefix map interval of 1 seconds"));
    const size_t before = rebuilds();

    // The table's trigger raises the counter by one.
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    ASSERT_TRUE(waitFor([&] { return find("9") == 3; }));
    waitCycles(2);
    EXPECT_EQ(before + 1, rebuilds());

    // Two rises seen at one check: one rebuild.
    setCounter(3);
    waitCycles(3);
    EXPECT_EQ(before + 2, rebuilds());

    // Lowered, and raised again but not above the highest value seen: none.
    setCounter(1);
    waitCycles(2);
    setCounter(2);
    waitCycles(2);
    EXPECT_EQ(before + 2, rebuilds());

    setCounter(4);
    waitCycles(3);
    EXPECT_EQ(before + 3, rebuilds());
}

TEST_F(PrefixMapMonitorThread, CheckNowAndDestroyDoNotWaitForTheInterval) {
    AppProperties::set("SipServer", "PrefixMapInterval", "3600");
    const std::string checking = "checking trigger_notify table for prefix_map update";
    PrefixMapMonitor::instance();
    // The initial reading and the first cycle's: then it waits an hour.
    ASSERT_TRUE(waitFor([&] { return count("LocationService", checking) >= 2; }));

    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    PrefixMapMonitor::instance()->checkNow();
    EXPECT_TRUE(waitFor([&] { return find("9") == 3; }));
    EXPECT_EQ(0u, count("PrefixMapMonitor", WOKE));

    testing::internal::CaptureStdout();
    PrefixMapMonitor::destroy();
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ("interrupting PrefixMapMonitor thread\ndone\n", printed);
    EXPECT_TRUE(capture.contains("PrefixMapMonitor", "prefix map thread shutting down"));
    EXPECT_FALSE(PrefixMapMonitor::exists());
}

TEST_F(PrefixMapMonitorThread, ThePoolRefusesToGoWhileTheMonitorUsesIt) {
    PrefixMapMonitor::instance();
    waitCycles(1);
    LocationServicePool::destroy();
    EXPECT_TRUE(capture.contains("LocationService",
                                 "LocationServicePool::destroy() refused: the PrefixMapMonitor thread still uses a "
                                 "connection of the pool; call PrefixMapMonitor::destroy() first"));

    // The thread's connection is still there and still works.
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    EXPECT_TRUE(waitFor([&] { return find("9") == 3; }));
    EXPECT_TRUE(PrefixMapMonitor::exists());
}

struct FailureCase {
    const char* name;
    // Breaks the database; `running` says whether the thread polls already.
    bool running;
    const char* statement;
    const char* trace;
    bool treeLeft;
};

void PrintTo(const FailureCase& c, std::ostream* os) {
    *os << c.name;
}

class PrefixMapMonitorFailure : public PrefixMapMonitorThread, public testing::WithParamInterface<FailureCase> {};

TEST_P(PrefixMapMonitorFailure, TheFirstDatabaseFailureEndsTheThread) {
    const FailureCase& c = GetParam();
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    ASSERT_TRUE(service->createPrefixMap().okay());
    if (c.running) {
        PrefixMapMonitor::instance();
        waitCycles(1);
    }
    db.admin().exec(c.statement);
    PrefixMapMonitor::instance();

    ASSERT_TRUE(waitFor([&] { return capture.contains("PrefixMapMonitor", c.trace); }));
    EXPECT_EQ(c.treeLeft ? 3 : 0, find("9"));
    EXPECT_EQ(c.treeLeft, LocationService::m_prefixMap != nullptr);
    EXPECT_EQ(1u, alarms.texts("zuVELMProxyDBAccessFailed").size());
    // Ended, not waiting: the shutdown finds no thread to wake.
    PrefixMapMonitor::destroy();
    EXPECT_FALSE(capture.contains("PrefixMapMonitor", "prefix map thread shutting down"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PrefixMapMonitorFailure,
    testing::Values(FailureCase{"CounterGoneAtStart", false, "DROP TABLE trigger_notify",
                                "failed to retrieve initial counter value", true},
                    FailureCase{"CounterGoneWhilePolling", true, "DROP TABLE trigger_notify",
                                "failed to check the prefix map table", true},
                    FailureCase{"RebuildFails", true,
                                "DROP TABLE prefix_map; UPDATE trigger_notify SET update_ctr = update_ctr + 1",
                                "failed to recreate prefix table", false}),
    [](const testing::TestParamInfo<FailureCase>& info) { return std::string(info.param.name); });

// Eight threads route numbers through the tree while the thread rebuilds it
// under them.
class PrefixMapConcurrency : public PrefixMapMonitorThread {};

TEST_F(PrefixMapConcurrency, LookupsStayRightWhileTheMonitorRebuilds) {
    velmtest::Provisioning(db.admin()).contact(3, "sip:alice@192.0.2.1:5060", "0.800000", time(nullptr) + 3600);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('555', 3)");
    ASSERT_TRUE(service->createPrefixMap().okay());
    PrefixMapMonitor::instance();
    // Rows added before the thread's first reading cause no rebuild.
    waitCycles(1);

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<int> lookups(8, 0);
    std::vector<std::thread> workers;
    for (int index = 0; index < 8; ++index)
        workers.emplace_back([&, index] {
            LocationService* mine = LocationServicePool::Instance()->getConnection();
            const std::string user = "555" + std::to_string(1000 + index);
            for (; !stop; ++lookups[index]) {
                std::string ordering;
                bool redirect = false;
                std::vector<velm::ContactRecord> contacts;
                velm::DatabaseResult result =
                    mine->lookupDigitMap(("sip:" + user + "@example.com").c_str(), ordering, redirect, contacts);
                wrong += !result.okay() || contacts.size() != 1 ||
                         contacts[0].address() != "sip:" + user + "@192.0.2.1:5060;";
                // At a request's pace: the lock is not fair, and threads that
                // take it back to back can keep the rebuild out for long.
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    // Each new row raises the counter; seeing it in the tree proves a rebuild.
    for (const char* prefix : {"90", "91", "92"}) {
        db.admin().exec(std::string("INSERT INTO prefix_map (prefix, csid) VALUES ('") + prefix + "', 3)");
        EXPECT_TRUE(waitFor([&] { return find(prefix) == 3; })) << prefix;
    }
    stop = true;
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(0, wrong.load());
    for (int index = 0; index < 8; ++index)
        EXPECT_GT(lookups[index], 0) << "thread " << index;
}
