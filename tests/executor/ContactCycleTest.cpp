// The start index of "cycle" contact sets, shared by all executors and
// threads of the process.
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "Provisioning.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;

TEST(ContactCycle, StartsAgainWhenTheSetShrankBelowTheStoredIndex) {
    std::string csid = "41";
    std::vector<int> starts;
    for (int call = 0; call < 4; ++call)
        starts.push_back(DatabaseCommandExecutor::getNextCycleIndex(csid, 5));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3}), starts);
    EXPECT_EQ(0, DatabaseCommandExecutor::getNextCycleIndex(csid, 2));
    EXPECT_EQ(1, DatabaseCommandExecutor::getNextCycleIndex(csid, 2));
    EXPECT_EQ(0, DatabaseCommandExecutor::getNextCycleIndex(csid, 2));

    std::string single = "42";
    EXPECT_EQ(0, DatabaseCommandExecutor::getNextCycleIndex(single, 1));
    EXPECT_EQ(0, DatabaseCommandExecutor::getNextCycleIndex(single, 1));
}

TEST(ContactCycle, ExecutorsOfDifferentThreadsShareTheRotation) {
    velmtest::TestDatabase db;
    velmtest::Provisioning rows(db.admin());
    rows.subscriber(8);
    rows.contactSet(200, 8, "cycle");
    rows.publicAddress(20, "bob", "example.com", 200, true);
    rows.contact(200, "sip:b@10.0.0.1", "0.800000", 2000000000);
    rows.contact(200, "sip:b@10.0.0.2", "0.000000", 2000000200);
    rows.contact(200, "sip:b@10.0.0.3", "0.000000", 2000000100);

    DatabaseCommandExecutor executors[2];
    for (DatabaseCommandExecutor& exec : executors)
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
    std::vector<std::string> firsts;
    for (int call = 0; call < 4; ++call) {
        // Alternate executors, each in a thread of its own.
        std::thread caller([&] {
            std::string ordering;
            bool replaceUri;
            std::vector<ContactRecord> contacts;
            EXPECT_TRUE(executors[call % 2].lookupContacts(20, ordering, replaceUri, contacts, true).okay());
            firsts.push_back(contacts.empty() ? "" : contacts[0].address());
        });
        caller.join();
    }
    EXPECT_EQ((std::vector<std::string>{"sip:b@10.0.0.1", "sip:b@10.0.0.2", "sip:b@10.0.0.3", "sip:b@10.0.0.1"}),
              firsts);
}

TEST(ContactCycle, ConcurrentCallersEachGetTheirOwnTurn) {
    const int threads = 4;
    const int callsPerThread = 300;
    std::vector<std::map<int, int>> seen(threads);
    std::vector<std::thread> callers;
    for (int t = 0; t < threads; ++t) {
        callers.emplace_back([&seen, t] {
            std::string csid = "77";
            for (int call = 0; call < callsPerThread; ++call)
                ++seen[t][DatabaseCommandExecutor::getNextCycleIndex(csid, 3)];
        });
    }
    for (std::thread& caller : callers)
        caller.join();
    std::map<int, int> total;
    for (const auto& counts : seen)
        for (const auto& entry : counts)
            total[entry.first] += entry.second;
    // Every index handed out exactly as often as the others: none lost or
    // handed out twice.
    EXPECT_EQ((std::map<int, int>{{0, 400}, {1, 400}, {2, 400}}), total);
}
