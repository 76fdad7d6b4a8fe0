#include "ContactRecord.h"
#include "LocationService.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using velm::ContactRecord;

TEST(RegistrationConcurrency, EightRegistrarsOfOneSetLeaveEveryContactAndOneActive) {
    velmtest::resetProperties();
    velmtest::TestDatabase db;
    const int key = velmtest::provisionAddress(db, 1, "alice", "example.com");
    constexpr int threads = 8;
    std::atomic<int> ready{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> registrars;
    for (int t = 0; t < threads; ++t) {
        registrars.emplace_back([&, t] {
            velm::LocationService service;
            if (!service.connect(db.name().c_str(), "velm", "").okay()) {
                ++failures;
                return;
            }
            ++ready;
            while (ready.load() < threads)
                std::this_thread::yield();
            std::string uri = "sip:alice@192.0.2." + std::to_string(10 + t) + ":5060";
            for (int round = 0; round < 3; ++round) {
                std::vector<ContactRecord> contacts{velmtest::contact(uri, "1.0")}, added, deleted, changed;
                velm::DatabaseResult result =
                    round == 0 ? service.registerContacts(key, contacts, added, deleted, changed)
                               : service.updateContacts(key, contacts, added, deleted, changed);
                if (!result.okay()) {
                    ++failures;
                    ADD_FAILURE() << uri << " round " << round << ": " << result.getErrorMessage();
                }
            }
        });
    }
    for (auto& registrar : registrars)
        registrar.join();

    EXPECT_EQ(0, failures.load());
    auto stored = velmtest::storedQvalues(db, key);
    EXPECT_EQ(static_cast<size_t>(threads), stored.size());
    int active = 0;
    for (const auto& entry : stored)
        active += entry.second == "0.800000" ? 1 : 0;
    EXPECT_EQ(1, active);
}
