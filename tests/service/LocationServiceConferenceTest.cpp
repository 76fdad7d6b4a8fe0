// Requests for the conference server: its URI, the bridge reservation and the
// capacity events. Each case runs in a process of its own, so the URI state
// shared by all instances starts fresh.
#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

using Alarms = std::vector<std::pair<std::string, std::string>>;

class ConferenceServer : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
        db.admin().exec("INSERT INTO acp (acp_id, name) VALUES (1, 'bridges')");
        service.setPrimaryDomain("Example.COM");
    }

    void handle(const std::string& value) {
        db.admin().exec("INSERT INTO system_parameters VALUES ('conference', 'SixParty', 'ConferenceFactoryUser', '" +
                        value + "')");
    }

    // `count` bridges numbered from 7001; the first `inUse` busy, the next
    // `invalid` out of order.
    void bridges(int count, int inUse = 0, int invalid = 0) {
        for (int index = 0; index < count; ++index) {
            std::string number = std::to_string(7001 + index);
            db.admin().exec("INSERT INTO extension (extension, acp_id, ext_type) VALUES ('" + number + "', 1, 'c')");
            if (index < inUse + invalid)
                db.admin().exec("INSERT INTO conf_state VALUES (" + number + ", '" +
                                (index < inUse ? "IN USE" : "INVALID") + "')");
        }
    }

    DatabaseResult lookup(const std::string& requestUri) {
        ordering.clear();
        redirect = false;
        contacts.clear();
        return service.lookupContacts(requestUri.c_str(), ordering, redirect, contacts, "alice");
    }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
    std::string ordering;
    bool redirect = false;
    std::vector<ContactRecord> contacts;
};

} // namespace

TEST_F(ConferenceServer, RequestForTheServerReservesABridge) {
    handle("ConfBridge");
    bridges(2);
    velmtest::TraceCapture capture({"LocationService", "EventServer"});
    DatabaseResult result = lookup("sip:confbridge@example.com");
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ("redirect", ordering);
    EXPECT_TRUE(redirect);
    ASSERT_EQ(1u, contacts.size());
    // The URI compares lower case; the bridge contact keeps the domain as set.
    EXPECT_EQ("sip:7001@Example.COM", contacts[0].address());
    EXPECT_EQ("7001", contacts[0].user());
    EXPECT_EQ("Example.COM", contacts[0].domain());
    EXPECT_EQ("IN USE", db.admin().value("SELECT conf_status FROM conf_state WHERE extension = 7001"));
    EXPECT_TRUE(capture.contains(
        "LocationService",
        "--- SUCCESS ---: Found match! Local Conference Server URI matched requestUri=sip:confbridge@example.com"));
    EXPECT_TRUE(capture.contains("EventServer", "C-T-C conference 7001 created"));
    EXPECT_TRUE(capture.contains("LocationService", "C-T-C checkUsage() conf_ext_provision total=2; run_time "
                                                    "idle=0,in_use=1,invalid=0,active=1.00"));

    ASSERT_TRUE(lookup("sip:confbridge@example.com").okay());
    EXPECT_EQ("sip:7002@Example.COM", contacts.at(0).address());
    // Both bridges are busy: the reservation fails and the pool is counted.
    result = lookup("sip:confbridge@example.com");
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(contacts.empty());
    EXPECT_EQ("", ordering);
    EXPECT_TRUE(capture.contains("EventServer", result.getErrorMessage() + " authUser: sip:confbridge@example.com"));
    EXPECT_EQ(
        (std::vector<std::string>{"Max Conf Ext Used: 100 percent usage", "Max Conf Ext Used: 100 percent usage"}),
        alarms.texts("zuVELMConfCapExceeded"));
}

TEST_F(ConferenceServer, OnlyTheExactUriIsTheServer) {
    bridges(1);
    velmtest::TraceCapture capture({"LocationService"});
    for (const char* other : {"sip:CONFSVR@example.com", "sips:confsvr@example.com", "sip:confsvr@example.com;x=1"}) {
        DatabaseResult result = lookup(other);
        EXPECT_NE("redirect", ordering) << other;
        EXPECT_TRUE(result.notFound() || result.fatalError()) << other;
    }
    EXPECT_EQ("0", db.admin().value("SELECT count(*) FROM conf_state"));
    EXPECT_TRUE(capture.contains("LocationService",
                                 "LocationService::queryConferenceServerHandle(): === WANRING ===: ConferenceServer "
                                 "Handle Not Found! Use Default: confsvr"));
    EXPECT_TRUE(alarms.texts("zuVELMConfCapExceeded").empty());
}

TEST_F(ConferenceServer, PrimaryDomainSetLaterIsUsed) {
    bridges(2);
    ASSERT_TRUE(lookup("sip:confsvr@example.com").okay());
    service.setPrimaryDomain("other.example.org");
    ASSERT_TRUE(lookup("sip:confsvr@other.example.org").okay());
    EXPECT_EQ("sip:7002@other.example.org", contacts.at(0).address());
}

TEST_F(ConferenceServer, WithoutPrimaryDomainNothingIsRouted) {
    service.setPrimaryDomain("");
    velmtest::TraceCapture capture({"LocationService"});
    EXPECT_EQ("", service.composeConferenceServerUri("", false));
    EXPECT_TRUE(capture.contains(
        "LocationService",
        "LocationService::composeConferenceServerUri(2): *** ERROR ***: PrimaryDomain name Not Found!"));
    for (int round = 0; round < 2; ++round) {
        DatabaseResult result = lookup("sip:alice@example.com");
        EXPECT_TRUE(result.queryError());
        EXPECT_EQ("*** ERROR ***: Empty conferenceServerUri() found!", result.getErrorMessage());
    }
}

TEST_F(ConferenceServer, ComposedUriFollowsTransportAndLowerCase) {
    handle("Bridge");
    EXPECT_EQ("sips:bridge@example.net", service.composeConferenceServerUri("EXAMPLE.net", true));
    EXPECT_EQ("sip:bridge@example.net", service.composeConferenceServerUri("example.net", false));
    EXPECT_EQ("bridge", service.queryConferenceServerHandle());
}

TEST(ConferenceServerUnconnected, DefaultHandleIsNotKeptWithoutAConnection) {
    velmtest::TestDatabase db;
    db.admin().exec("INSERT INTO system_parameters VALUES ('conference', 'SixParty', 'ConferenceFactoryUser', 'meet')");
    LocationService service;
    EXPECT_EQ("confsvr", service.queryConferenceServerHandle());
    EXPECT_EQ("sip:confsvr@example.com", service.composeConferenceServerUri("example.com", false));
    std::string ordering;
    bool redirect = false;
    std::vector<ContactRecord> contacts;
    service.setPrimaryDomain("example.com");
    DatabaseResult result = service.lookupContacts("sip:confsvr@example.com", ordering, redirect, contacts, nullptr);
    EXPECT_TRUE(result.connectionError());
    EXPECT_TRUE(contacts.empty());

    ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    EXPECT_EQ("sip:meet@example.com", service.composeConferenceServerUri("example.com", false));
}

struct CapacityCase {
    int total;
    int inUse;
    int invalid;
    // The event the reservation of one more bridge raises, or null.
    const char* event;
};

class ConferenceCapacity : public ConferenceServer, public testing::WithParamInterface<CapacityCase> {};

TEST_P(ConferenceCapacity, EventsFireOnReachingTheLevelExactly) {
    const CapacityCase& c = GetParam();
    bridges(c.total, c.inUse, c.invalid);
    bool flag = false;
    ContactRecord contact;
    ASSERT_TRUE(service.resolveConfSvrUri("alice", flag, contact).okay());
    EXPECT_TRUE(flag);
    Alarms expected;
    if (c.event != nullptr)
        expected.emplace_back(c.event, std::string(c.event) == "zuVELMConfCapacity"
                                           ? "80 percent Conf Ext Used: 80 percent usage"
                                           : "Max Conf Ext Used: 100 percent usage");
    EXPECT_EQ(expected, alarms.alarms());
}

INSTANTIATE_TEST_SUITE_P(Pools, ConferenceCapacity,
                         testing::Values(CapacityCase{10, 7, 0, "zuVELMConfCapacity"},
                                         CapacityCase{10, 5, 2, "zuVELMConfCapacity"}, CapacityCase{10, 8, 0, nullptr},
                                         CapacityCase{10, 6, 3, "zuVELMConfCapExceeded"}, CapacityCase{3, 1, 0, nullptr},
                                         // ceil(2.4) is the total: the full-pool event wins.
                                         CapacityCase{3, 2, 0, "zuVELMConfCapExceeded"}));
