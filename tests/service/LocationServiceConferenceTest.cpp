// Conference requests: the server's URI, reserving a bridge from the pool,
// counting the pool and its capacity events.
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"
#include "ServiceFixture.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

const char* const NO_BRIDGE = "*** ERROR ***: Failed to find and reserve an IDLE Conference Bridge Extension!";
const char* const MAX_USED = "Max Conf Ext Used: 100 percent usage";

// Bridges sit behind trunks (acp) 1 and 3; alice is behind trunk 1, bob
// behind trunk 2, which has none.
class ConferenceServer : public velmtest::ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        db.admin().exec("INSERT INTO acp (acp_id, name) VALUES (1, 'bridges'), (2, 'trunk2'), (3, 'trunk3')");
        db.admin().exec("INSERT INTO subscriber (sid, auth_user_id) VALUES (1, 'alice'), (2, 'bob')");
        db.admin().exec("INSERT INTO extension (extension, sid, acp_id, ext_type) VALUES "
                        "('100', 1, 1, 'u'), ('200', 2, 2, 'u')");
        service.setPrimaryDomain("Example.COM");
    }

    void handle(const std::string& value) {
        db.admin().exec("INSERT INTO system_parameters VALUES ('conference', 'SixParty', 'ConferenceFactoryUser', '" +
                        value + "')");
    }

    // Bridge `number` behind trunk `acp`, in `state` (empty: never used).
    void bridge(int acp, int number, const std::string& state = "") {
        db.admin().exec("INSERT INTO extension (extension, acp_id, ext_type) VALUES ('" + std::to_string(number) +
                        "', " + std::to_string(acp) + ", 'c')");
        if (!state.empty())
            db.admin().exec("INSERT INTO conf_state VALUES (" + std::to_string(number) + ", '" + state + "')");
    }

    // `count` bridges from 7001 behind trunk 1; the first `inUse` busy, the
    // next `invalid` out of order.
    void bridges(int count, int inUse = 0, int invalid = 0) {
        for (int index = 0; index < count; ++index)
            bridge(1, 7001 + index, index < inUse ? "IN USE" : index < inUse + invalid ? "INVALID" : "");
    }

    std::string stateOf(int extension) {
        auto rows = db.admin().query("SELECT conf_status FROM conf_state WHERE extension = " + std::to_string(extension));
        return rows.size() == 1 ? rows[0][0] : "rows: " + std::to_string(rows.size());
    }

    DatabaseCommandExecutor& exec() { return *service.m_exec; }
};

} // namespace

TEST_F(ConferenceServer, RequestForTheServerReservesABridge) {
    handle("ConfBridge");
    bridges(1);
    velmtest::TraceCapture capture({"EventServer"});
    DatabaseResult result = lookup("sip:confbridge@example.com");
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ("redirect", ordering);
    EXPECT_TRUE(redirect);
    ASSERT_EQ(1u, contacts.size());
    // The URI compares lower case; the bridge contact keeps the domain as set.
    EXPECT_EQ("sip:7001@Example.COM", contacts[0].address());
    EXPECT_EQ("IN USE", stateOf(7001));
    EXPECT_TRUE(capture.contains("EventServer", "C-T-C conference 7001 created"));
    // The only bridge is busy: the reservation fails and the pool is counted.
    result = lookup("sip:confbridge@example.com");
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ("", ordering);
    EXPECT_TRUE(capture.contains("EventServer", result.getErrorMessage() + " authUser: sip:confbridge@example.com"));
    EXPECT_EQ((std::vector<std::string>{MAX_USED, MAX_USED}), alarms.texts("zuVELMConfCapExceeded"));

    // A primary domain set later is the one the server answers in.
    db.admin().exec("DELETE FROM conf_state");
    service.setPrimaryDomain("other.example.org");
    ASSERT_TRUE(lookup("sip:confbridge@other.example.org").okay());
    EXPECT_EQ("sip:7001@other.example.org", contacts.at(0).address());
}

TEST_F(ConferenceServer, OnlyTheExactUriIsTheServer) {
    bridges(1);
    for (const char* other : {"sip:CONFSVR@example.com", "sips:confsvr@example.com", "sip:confsvr@example.com;x=1"}) {
        DatabaseResult result = lookup(other);
        EXPECT_NE("redirect", ordering) << other;
        EXPECT_TRUE(result.notFound() || result.fatalError()) << other;
    }
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM conf_state"));
    EXPECT_TRUE(alarms.texts("zuVELMConfCapExceeded").empty());
}

TEST_F(ConferenceServer, WithoutPrimaryDomainNothingIsRouted) {
    service.setPrimaryDomain("");
    EXPECT_EQ("", service.composeConferenceServerUri("", false));
    for (int round = 0; round < 2; ++round) {
        DatabaseResult result = lookup("sip:alice@example.com");
        EXPECT_TRUE(result.queryError());
        EXPECT_EQ("*** ERROR ***: Empty conferenceServerUri() found!", result.getErrorMessage());
    }
}

// The handle is read, and kept, only once there is a connection; the URI
// follows the transport and is lower case.
TEST(ConferenceServerUnconnected, DefaultHandleIsNotKeptWithoutAConnection) {
    velmtest::TestDatabase db;
    db.admin().exec("INSERT INTO system_parameters VALUES ('conference', 'SixParty', 'ConferenceFactoryUser', 'Meet')");
    LocationService service;
    EXPECT_EQ("sip:confsvr@example.com", service.composeConferenceServerUri("example.com", false));
    ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    EXPECT_EQ("sips:meet@example.net", service.composeConferenceServerUri("EXAMPLE.net", true));
    EXPECT_EQ("sip:meet@example.net", service.composeConferenceServerUri("example.net", false));
    EXPECT_EQ("meet", service.queryConferenceServerHandle());
}

namespace {

struct Bridge {
    int acp;
    int number;
    const char* state;
};

struct ReserveCase {
    const char* name;
    std::vector<Bridge> bridges;
    const char* user;
    // The bridge reserved; 0: none is free.
    int reserved;
    const char* trace;
};

class ConferencePool : public ConferenceServer, public testing::WithParamInterface<ReserveCase> {};

} // namespace

TEST_P(ConferencePool, ReservesOneIdleBridgeAndClosesTheTransaction) {
    const ReserveCase& c = GetParam();
    for (const Bridge& b : c.bridges)
        bridge(b.acp, b.number, b.state);
    velmtest::TraceCapture capture({"DatabaseCommandExecutor"});
    std::string extension = "stale";
    DatabaseResult result = exec().useOneAvailConfExt(c.user, extension);
    EXPECT_TRUE(capture.contains("DatabaseCommandExecutor", c.trace));
    if (c.reserved == 0) {
        EXPECT_TRUE(result.notFound());
        EXPECT_EQ(NO_BRIDGE, result.getErrorMessage());
        EXPECT_EQ("", extension);
    } else {
        ASSERT_TRUE(result.okay()) << result.getErrorMessage();
        EXPECT_EQ(std::to_string(c.reserved), extension);
    }
    // The other bridges are as they were, and the session is out of its
    // transaction.
    for (const Bridge& b : c.bridges)
        EXPECT_EQ(b.number == c.reserved ? "IN USE" : *b.state != '\0' ? b.state : "rows: 0", stateOf(b.number));
    velm::QueryResultPtr pid;
    ASSERT_TRUE(exec().execute("SELECT pg_backend_pid()", pid).okay());
    EXPECT_EQ("idle", db.admin().value(std::string("SELECT state FROM pg_stat_activity WHERE pid = ") +
                                       pid.getValue(0, 0)));
}

INSTANTIATE_TEST_SUITE_P(
    Reservations, ConferencePool,
    testing::Values(
        ReserveCase{"OwnTrunkFirst", {{3, 8001, ""}, {1, 7001, ""}}, "alice", 7001,
                    "useOneAvailConfExt(): Successfully reserved an IDLE extension= 7001"},
        ReserveCase{"AnyTrunkWithoutOwn", {{1, 7001, "IN USE"}, {3, 8001, ""}}, "bob", 8001,
                    "useOneAvailConfExt(): Successfully reserved from query2 an IDLE extension= 8001"},
        ReserveCase{"IdleTakenBack", {{1, 7001, "INVALID"}, {1, 7002, "IN USE"}, {1, 7003, "IDLE"}}, "alice", 7003,
                    "useOneAvailConfExt(): Successfully reserved an IDLE extension= 7003"},
        ReserveCase{"Exhausted", {{1, 7001, "IN USE"}, {1, 7002, "INVALID"}}, "alice", 0,
                    "useOneAvailConfExt(): *** Failed to reserve an IDLE extension! ***"}),
    [](const testing::TestParamInfo<ReserveCase>& info) { return std::string(info.param.name); });

TEST_F(ConferenceServer, ConcurrentReservationsNeverShareABridge) {
    const int perThread = 10;
    // Idle rows are updated in place and fresh bridges inserted: both ways
    // must stay exclusive.
    for (int index = 0; index < 2 * perThread; ++index)
        bridge(1, 7001 + index, index < perThread ? "IDLE" : "");
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
        for (int i = 0; ready && i < perThread; ++i) {
            std::string extension;
            DatabaseResult result = own.useOneAvailConfExt("alice", extension);
            (result.okay() ? taken : failures).push_back(result.okay() ? extension : result.getErrorMessage());
        }
    };
    std::vector<std::string> first, second, failures, moreFailures;
    std::thread a(reserve, std::ref(first), std::ref(failures));
    std::thread b(reserve, std::ref(second), std::ref(moreFailures));
    a.join();
    b.join();
    failures.insert(failures.end(), moreFailures.begin(), moreFailures.end());
    EXPECT_TRUE(failures.empty()) << failures.front();
    std::set<std::string> distinct(first.begin(), first.end());
    distinct.insert(second.begin(), second.end());
    EXPECT_EQ(static_cast<size_t>(2 * perThread), distinct.size());
    EXPECT_EQ(std::to_string(2 * perThread),
              db.admin().value("SELECT count(*) FROM conf_state WHERE conf_status = 'IN USE'"));
    std::string extension;
    EXPECT_TRUE(exec().useOneAvailConfExt("alice", extension).notFound());
}

TEST_F(ConferenceServer, CountsFollowTheReservationsAndFailuresLeaveThePoolAlone) {
    bridges(4);
    bridge(3, 8001, "INVALID");
    std::map<std::string, unsigned int> count{{DatabaseCommandExecutor::STR_CONF_IDLE, 99}};
    std::string extension;
    ASSERT_TRUE(exec().useOneAvailConfExt("alice", extension).okay());
    ASSERT_TRUE(exec().useOneAvailConfExt("bob", extension).okay());
    DatabaseResult noUser = exec().useOneAvailConfExt(nullptr, extension);
    EXPECT_TRUE(noUser.queryError());
    EXPECT_EQ("null auth user", noUser.getErrorMessage());
    ASSERT_TRUE(exec().confExtCount(count).okay());
    // The idle count is the caller's to derive.
    EXPECT_EQ((std::map<std::string, unsigned int>{{"TOTAL", 5}, {"IN USE", 2}, {"INVALID", 1}, {"IDLE", 99}}),
              count);

    db.admin().exec("DROP TABLE conf_state CASCADE");
    count = {{"IN USE", 7}};
    DatabaseResult result = exec().confExtCount(count);
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("conf_status='INVALID'"));
    EXPECT_EQ((std::map<std::string, unsigned int>{{"TOTAL", 5}, {"IN USE", 7}}), count);
}

namespace {

struct CapacityCase {
    int total;
    int inUse;
    int invalid;
    // The event the reservation of one more bridge raises, or null.
    const char* event;
};

class ConferenceCapacity : public ConferenceServer, public testing::WithParamInterface<CapacityCase> {};

} // namespace

TEST_P(ConferenceCapacity, EventsFireOnReachingTheLevelExactly) {
    const CapacityCase& c = GetParam();
    bridges(c.total, c.inUse, c.invalid);
    bool flag = false;
    ContactRecord contact;
    ASSERT_TRUE(service.resolveConfSvrUri("alice", flag, contact).okay());
    EXPECT_TRUE(flag);
    std::vector<std::pair<std::string, std::string>> expected;
    if (c.event != nullptr)
        expected.emplace_back(c.event, std::string(c.event) == "zuVELMConfCapacity"
                                           ? "80 percent Conf Ext Used: 80 percent usage"
                                           : MAX_USED);
    EXPECT_EQ(expected, alarms.alarms());
}

INSTANTIATE_TEST_SUITE_P(Pools, ConferenceCapacity,
                         testing::Values(CapacityCase{10, 7, 0, "zuVELMConfCapacity"},
                                         CapacityCase{10, 5, 2, "zuVELMConfCapacity"}, CapacityCase{10, 8, 0, nullptr},
                                         CapacityCase{10, 6, 3, "zuVELMConfCapExceeded"}, CapacityCase{3, 1, 0, nullptr},
                                         // ceil(2.4) is the total: the full-pool event wins.
                                         CapacityCase{3, 2, 0, "zuVELMConfCapExceeded"}));
