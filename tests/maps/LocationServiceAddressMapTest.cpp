// Address-map routing: compiled entries, their list in the service, and the
// routing of requests by the address_map rows.
#include "AddressMap.h"
#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "Registrations.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using velmtest::TestDatabase;

TEST(LocationServiceAddressMap, APatternThatDoesNotCompileMatchesNothing) {
    velmtest::TraceCapture capture({"RegEx"});
    velm::RegExp expression;
    EXPECT_FALSE(expression.compile("sip:(unclosed", false));
    EXPECT_FALSE(expression.valid());
    EXPECT_FALSE(expression.match("sip:(unclosed"));
    EXPECT_TRUE(capture.contains("RegEx", "compile failed"));
    EXPECT_TRUE(capture.contains("RegEx", "match failed, invalid regex"));

    EXPECT_TRUE(expression.compile("^SIP:", true));
    EXPECT_TRUE(expression.match("sip:alice@example.com"));
    EXPECT_TRUE(expression.compile("^SIP:", false));
    EXPECT_FALSE(expression.match("sip:alice@example.com"));
}

namespace {

const char* const MODIFIED = "'Sun Nov 15 06:20:45 2026'";
const char* const A_SECOND_LATER = "'Sun Nov 15 06:20:46 2026'";

// Routing requests by the address_map rows of a fresh database.
class AddressMapRouting : public ::testing::Test {
protected:
    void SetUp() override {
        velm::DatabaseResult connected = service.connect(db.name().c_str(), "velm", "pw");
        ASSERT_TRUE(connected.okay()) << connected.getErrorMessage();
    }

    // A contact set of no subscriber with one permanent contact.
    void gateway(int csid, const std::string& address) {
        db.admin().exec("INSERT INTO contact_set (csid, ordering) VALUES (" + std::to_string(csid) + ", 'sequential')");
        velmtest::Provisioning(db.admin()).permanentContact(csid, address);
    }

    void row(const std::string& handle, int csid, const std::string& pattern, int priority,
             const std::string& modified = MODIFIED) {
        db.admin().exec("INSERT INTO address_map (handle, csid, pattern, priority, modification_time) VALUES (" +
                        handle + ", " + std::to_string(csid) + ", '" + pattern + "', " + std::to_string(priority) +
                        ", " + modified + ")");
    }

    // The addresses the request is routed to; empty when it is not.
    std::vector<std::string> route(const char* requestUri, velm::DatabaseResult& result) {
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        result = service.lookupAddressMap(requestUri, ordering, redirect, contacts);
        return velmtest::addresses(contacts);
    }

    std::vector<std::string> keys() {
        std::vector<std::string> keys;
        service.getMapKeys(keys);
        return keys;
    }

    TestDatabase db;
    velmtest::AlarmCapture alarms;
    velm::LocationService service;
};

size_t linesWith(const velmtest::TraceCapture& capture, const std::string& prefix) {
    size_t count = 0;
    for (const std::string& line : capture.lines("LocationService"))
        count += line.compare(0, prefix.size(), prefix) == 0;
    return count;
}

} // namespace

TEST_F(AddressMapRouting, TheFirstMatchingPatternInPriorityOrderWins) {
    gateway(10, "sip:ten@gw.example.com");
    gateway(20, "sip:twenty@gw.example.com");
    gateway(30, "sip:thirty@gw.example.com");
    gateway(40, "sip:catchall@gw.example.com");
    row("'ones'", 10, "^sip:1", 5);
    row("'twelves'", 20, "^sip:12", 1);
    row("'twos'", 30, "^sip:2[0-9]*@", 7);
    row("'broken'", 30, "^sip:(", 0);
    // An empty pattern matches every request.
    row("'rest'", 40, "", 99);
    struct Case {
        const char* uri;
        const char* routedTo;
    };
    for (const Case& c : {Case{"sip:123@example.com", "sip:twenty@gw.example.com"},
                          Case{"sip:199@example.com", "sip:ten@gw.example.com"},
                          Case{"sip:2@example.com", "sip:thirty@gw.example.com"},
                          Case{"sip:2a@example.com", "sip:catchall@gw.example.com"},
                          Case{"sips:123@example.com", "sip:catchall@gw.example.com"}}) {
        velm::DatabaseResult result;
        std::vector<std::string> routed = route(c.uri, result);
        ASSERT_TRUE(result.okay()) << c.uri << ": " << result.getErrorMessage();
        EXPECT_EQ(std::vector<std::string>{c.routedTo}, routed) << c.uri;
    }
    EXPECT_EQ((std::vector<std::string>{"broken-30", "twelves-20", "ones-10", "twos-30", "rest-40"}), keys());

    db.admin().exec("DELETE FROM address_map WHERE handle = 'rest'");
    velm::DatabaseResult result;
    EXPECT_TRUE(route("sip:2a@example.com", result).empty());
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(AddressMapRouting, ContactAddressesTakeThePartsOfTheRequest) {
    gateway(10, "placeholder");
    row("'all'", 10, "^sip", 1);
    struct Case {
        const char* stored;
        const char* uri;
        const char* routed;
    };
    for (const Case& c : {
             Case{"sip:$user@gw.example.com", "sip:alice@example.com", "sip:alice@gw.example.com"},
             Case{"sip:${user}x@${host}:$port", "sip:bob@example.com:5070", "sip:bobx@example.com:5070"},
             Case{"sip:$user@gw:$port", "sip:bob@example.com", "sip:bob@gw:$port"},
             Case{"$protocol:$user:$password@gw", "sips:bob:secret@example.com", "sips:bob:secret@gw"},
             Case{"sip:$user@gw;pw=$password", "sip:bob@example.com", "sip:bob@gw;pw="},
             Case{"sip:$user@gw;$parameters", "sip:bob@example.com;transport=tcp;lr", "sip:bob@gw;transport=tcp;lr"},
             Case{"sip:gw?$headers", "sip:bob@example.com?Subject=hi", "sip:gw?Subject=hi"},
             Case{"sip:gw?h=$headers;p=$parameters", "sip:bob@example.com", "sip:gw?h=;p="},
             Case{"sip:$$user@gw", "sip:bob@example.com", "sip:$user@gw"},
             Case{"sip:$userx@gw", "sip:bob@example.com", "sip:$userx@gw"},
         }) {
        db.admin().exec(std::string("UPDATE contact SET address = '") + c.stored + "'");
        velm::DatabaseResult result;
        std::vector<std::string> routed = route(c.uri, result);
        ASSERT_TRUE(result.okay()) << c.uri << ": " << result.getErrorMessage();
        EXPECT_EQ(std::vector<std::string>{c.routed}, routed) << c.stored << " for " << c.uri;
    }
}

TEST_F(AddressMapRouting, APatternIsCompiledAgainOnlyWhenItsRowBecomesNewer) {
    gateway(10, "sip:gw@gw.example.com");
    row("'gw'", 10, "^sip:1", 1);
    velm::DatabaseResult result;
    EXPECT_EQ(1u, route("sip:1@example.com", result).size());

    auto routesTwo = [&](const std::string& modified) {
        db.admin().exec("UPDATE address_map SET pattern = '^sip:2', modification_time = " + modified);
        return route("sip:2@example.com", result).size() == 1;
    };
    velmtest::TraceCapture capture({"AddressMap"});
    EXPECT_FALSE(routesTwo(MODIFIED));
    EXPECT_TRUE(capture.contains("AddressMap", "expression already compiled"));
    EXPECT_FALSE(routesTwo("'Sun Nov 15 06:20:44 2026'"));
    EXPECT_TRUE(routesTwo(A_SECOND_LATER));
    EXPECT_TRUE(capture.contains("AddressMap", "compiling expression '^sip:2'"));
}

TEST_F(AddressMapRouting, EntriesFollowTheRowsAndAreFreedOnce) {
    gateway(10, "sip:ten@gw.example.com");
    gateway(20, "sip:twenty@gw.example.com");
    // Two rows with the same key, and one without a handle.
    row("'gw'", 10, "^sip:1", 1);
    row("'gw'", 10, "^sip:2", 2);
    row("NULL", 20, "^sip:3", 3);
    velm::DatabaseResult result;
    route("sip:9@example.com", result);
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ((std::vector<std::string>{"gw-10", "gw-10", "-20"}), keys());
    std::set<velm::AddressMap*> entries(service.m_addrMap.begin(), service.m_addrMap.end());
    EXPECT_EQ(3u, entries.size());

    // New priorities reorder the entries that are there; nothing is made anew.
    velmtest::TraceCapture capture({"LocationService"});
    db.admin().exec("UPDATE address_map SET priority = 0 WHERE handle IS NULL");
    EXPECT_EQ(std::vector<std::string>{"sip:twenty@gw.example.com"}, route("sip:3@example.com", result));
    EXPECT_EQ((std::vector<std::string>{"-20", "gw-10", "gw-10"}), keys());
    EXPECT_EQ(entries, std::set<velm::AddressMap*>(service.m_addrMap.begin(), service.m_addrMap.end()));
    EXPECT_EQ(0u, linesWith(capture, "adding new map for"));
    EXPECT_EQ(3u, linesWith(capture, "map for "));

    // One of the twins goes: the other keeps its entry and its pattern.
    db.admin().exec("DELETE FROM address_map WHERE pattern = '^sip:1'");
    EXPECT_EQ(std::vector<std::string>{"sip:ten@gw.example.com"}, route("sip:2@example.com", result));
    EXPECT_EQ((std::vector<std::string>{"-20", "gw-10"}), keys());
    EXPECT_EQ(1u, linesWith(capture, "removing map entry for gw-10"));
    std::string twin = "gw-10";
    ASSERT_NE(nullptr, service.lookupMapEntry(twin));
    EXPECT_EQ("^sip:2", service.lookupMapEntry(twin)->pattern());

    db.admin().exec("DELETE FROM address_map");
    EXPECT_TRUE(route("sip:2@example.com", result).empty());
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(keys().empty());
}

TEST_F(AddressMapRouting, AVisitingUserIsPassedOnBeforeAnyPatternIsRead) {
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1')");
    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(7);
    provisioning.contactSet(70, 7);
    provisioning.publicAddress(700, "roamer", "example.com", 70, true);
    db.admin().exec("INSERT INTO velm_users (sid, node_id) VALUES (7, 2)");
    db.admin().exec("ALTER TABLE address_map RENAME TO lost");
    velm::DatabaseResult result;
    EXPECT_TRUE(route("sip:roamer@example.com", result).empty());
    EXPECT_TRUE(result.notFound());
    EXPECT_EQ("lookupAddressMap passed visiting user", result.getErrorMessage());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(AddressMapRouting, RequestsWithoutUserOrHostAreRefused) {
    struct Case {
        const char* uri;
        const char* message;
    };
    for (const Case& c : {Case{nullptr, "null uri"}, Case{"sip:example.com", "lookupAddressMap: null uri.user or .domain"},
                          Case{"not a uri", "lookupAddressMap: null uri.user or .domain"}}) {
        velm::DatabaseResult result;
        route(c.uri, result);
        EXPECT_TRUE(result.queryError()) << c.message;
        EXPECT_EQ(c.message, result.getErrorMessage());
    }
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(AddressMapRouting, DatabaseFailuresAreAlarmedByStepAndKeepTheList) {
    gateway(10, "sip:gw@gw.example.com");
    row("'gw'", 10, "^sip:", 1);
    velm::DatabaseResult result;
    ASSERT_EQ(1u, route("sip:1@example.com", result).size());

    db.admin().exec("ALTER TABLE address_map RENAME TO lost");
    route("sip:1@example.com", result);
    ASSERT_TRUE(result.queryError());
    EXPECT_EQ(std::vector<std::string>{"gw-10"}, keys());
    db.admin().exec("ALTER TABLE lost RENAME TO address_map");

    db.admin().exec("ALTER TABLE contact RENAME TO lost");
    velm::DatabaseResult second;
    route("sip:1@example.com", second);
    ASSERT_TRUE(second.queryError());

    ASSERT_EQ(2u, alarms.alarms().size());
    EXPECT_EQ("database failure - lookupAddressMap_1. " + result.getErrorMessage(), alarms.alarms()[0].second);
    EXPECT_EQ("database failure - lookupAddressMap_2. " + second.getErrorMessage(), alarms.alarms()[1].second);
}
