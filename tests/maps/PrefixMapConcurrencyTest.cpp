#include "AppProperties.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "PrefixMapMonitor.h"
#include "Provisioning.h"
#include "SafeLock.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::ContactRecord;
using velm::LocationService;
using velm::LocationServicePool;
using velm::PrefixMapMonitor;

// Eight threads route numbers through the tree while the monitor thread
// rebuilds it under them.
TEST(PrefixMapConcurrency, LookupsStayRightWhileTheMonitorRebuilds) {
    velmtest::TestDatabase db;
    velmtest::server();
    AppProperties::set("Database", "ProxyDatabaseUser", "velm");
    AppProperties::set("Services", "velm.sip.db", db.name().c_str());
    AppProperties::set("SipServer", "PrefixMapInterval", "1");
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(1);
    provisioning.contactSet(10, 1);
    provisioning.contact(10, "sip:alice@192.0.2.1:5060", "0.800000", static_cast<long>(time(nullptr)) + 3600);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('555', 10)");

    velmtest::TraceCapture capture({"PrefixMapMonitor"});
    LocationService* service = LocationServicePool::Instance()->getConnection();
    ASSERT_TRUE(service->createPrefixMap().okay());
    PrefixMapMonitor::instance();
    // Rows added before the thread's first reading cause no rebuild.
    for (int attempt = 0; attempt < 3000 && capture.lines("PrefixMapMonitor").size() < 2; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_GE(capture.lines("PrefixMapMonitor").size(), 2u) << "the thread did not start polling";

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<int> lookups(8, 0);
    std::vector<std::thread> workers;
    for (int index = 0; index < 8; ++index)
        workers.emplace_back([&, index] {
            LocationService* mine = LocationServicePool::Instance()->getConnection();
            const std::string user = "555" + std::to_string(1000 + index);
            while (!stop) {
                std::string ordering;
                bool redirect = false;
                std::vector<ContactRecord> contacts;
                velm::DatabaseResult result =
                    mine->lookupDigitMap(("sip:" + user + "@example.com").c_str(), ordering, redirect, contacts);
                if (!result.okay() || contacts.size() != 1 ||
                    contacts[0].address() != "sip:" + user + "@192.0.2.1:5060;")
                    ++wrong;
                ++lookups[index];
                // At a request's pace: the lock is not fair, and threads that
                // take it back to back can keep the rebuild out for long.
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });

    // Each new row raises the counter; seeing it in the tree proves a rebuild.
    auto routed = [&](const std::string& user) {
        return osk::withCancelSafeLock(LocationService::m_mutexPrefix, [&] {
            int csid = 0;
            service->findPrefix(user.c_str(), csid, 0, LocationService::m_prefixMap);
            return csid == 10;
        });
    };
    for (int round = 0; round < 3; ++round) {
        std::string prefix = "9" + std::to_string(round);
        db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('" + prefix + "', 10)");
        bool rebuilt = false;
        for (int attempt = 0; attempt < 3000 && !rebuilt; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            rebuilt = routed(prefix);
        }
        EXPECT_TRUE(rebuilt) << "round " << round;
    }
    stop = true;
    for (auto& worker : workers)
        worker.join();
    PrefixMapMonitor::destroy();
    service->destroyPrefixmap();
    LocationServicePool::destroy();

    EXPECT_EQ(0, wrong.load());
    for (int index = 0; index < 8; ++index)
        EXPECT_GT(lookups[index], 0) << "thread " << index;
}
