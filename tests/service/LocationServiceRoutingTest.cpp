// Where a request goes: the decision chain between the resolver module, the
// contacts cache and the database. The resolver is the test module loaded
// with dlopen; it answers by the request's user part (see
// modules/TestResolverModule.cpp). Each case runs in a process of its own.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "ContactsCache.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;

namespace {

using Addresses = std::vector<std::string>;

const Addresses MODULE_CONTACTS{"sip:first@192.0.2.1:5060", "sip:second@192.0.2.2;transport=tcp"};
const long FAR_FUTURE = 4102444800L;

Addresses addresses(const std::vector<ContactRecord>& contacts) {
    Addresses list;
    for (const ContactRecord& contact : contacts)
        list.push_back(contact.address());
    return list;
}

// The database's contacts of `user`: sip:<user>@192.0.2.1x.
Addresses stored(const std::string& user, int count) {
    Addresses list;
    for (int index = 0; index < count; ++index)
        list.push_back("sip:" + user + "@192.0.2.1" + std::to_string(index));
    return list;
}

class Routing : public testing::Test {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        AppProperties::set("LocationService", "ResolverModule", VELM_TEST_RESOLVER_MODULE);
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
        service.setPrimaryDomain("example.com");
    }

    // Subscriber `id` with public address user@example.com and `count`
    // contacts, the first active; returns the public address key.
    int provision(int id, const std::string& user, int count, const std::string& ordering = "sequential") {
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(id);
        provisioning.contactSet(id, id, ordering, true);
        provisioning.publicAddress(id, user, "example.com", id, true);
        Addresses list = stored(user, count);
        for (size_t index = 0; index < list.size(); ++index)
            provisioning.contact(id, list[index], index == 0 ? "0.800000" : "0.000000", FAR_FUTURE - long(index));
        return id;
    }

    DatabaseResult route(const std::string& requestUri) {
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

long countLines(const velmtest::TraceCapture& capture, const std::string& prefix) {
    auto lines = capture.lines("LocationService");
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.compare(0, prefix.size(), prefix) == 0; });
}

struct ChainCase {
    const char* name;
    bool moduleFirst;
    bool onNotFound;
    bool onNoContacts;
    const char* user;
    // Contacts in the database; -1: no such public address.
    int registered;
    DatabaseResult::status status;
    // Addresses of the answer; null: the database's contacts of the user.
    const Addresses* answer;
    int moduleAsked;
    bool databaseAsked;
};

const Addresses NONE;

class DecisionChain : public Routing, public testing::WithParamInterface<ChainCase> {};

} // namespace

TEST_P(DecisionChain, SourcesAreAskedInOrderAndTheModuleAtMostOnce) {
    const ChainCase& c = GetParam();
    service.m_moduleFirst = c.moduleFirst;
    service.m_alternateOnNotFound = c.onNotFound;
    service.m_alternateOnNoContacts = c.onNoContacts;
    if (c.registered >= 0)
        provision(1, c.user, c.registered);
    velmtest::TraceCapture capture({"LocationService"});
    const std::string requestUri = std::string("sip:") + c.user + "@example.com";
    DatabaseResult result = route(requestUri);
    EXPECT_EQ(c.status, result.m_status) << result.getErrorMessage();
    EXPECT_EQ(c.answer != nullptr ? *c.answer : stored(c.user, c.registered), addresses(contacts));
    EXPECT_EQ(c.moduleAsked, countLines(capture, "looking up alternate contacts for " + requestUri));
    EXPECT_EQ(c.databaseAsked,
              capture.contains("LocationService", std::string("looking up contacts for ") + c.user + "@example.com"));
    EXPECT_EQ(c.moduleFirst,
              capture.contains("LocationService", "module lookup first enabled, looking up " + requestUri));
}

INSTANTIATE_TEST_SUITE_P(
    Matrix, DecisionChain,
    testing::Values(
        ChainCase{"ModuleFirstAnswers", true, false, false, "two", 1, DatabaseResult::OKAY, &MODULE_CONTACTS, 1, false},
        ChainCase{"ModuleFirstEmptyIsFinal", true, true, true, "none", 1, DatabaseResult::OKAY, &NONE, 1, false},
        ChainCase{"ModuleFirstUnknownStatusIsFinal", true, false, false, "odd", 1, DatabaseResult::OKAY, &NONE, 1,
                  false},
        ChainCase{"ModuleFirstFailureFallsToDatabase", true, true, true, "fail", 1, DatabaseResult::OKAY, nullptr, 1,
                  true},
        ChainCase{"ModuleFirstDeclinesNoSecondAsk", true, true, true, "unknown", 0, DatabaseResult::OKAY, &NONE, 1,
                  true},
        ChainCase{"ModuleFirstThenUnknownAddress", true, true, true, "unknown", -1, DatabaseResult::NOTFOUND, &NONE, 1,
                  false},
        ChainCase{"NotFoundAsksModule", false, true, false, "two", -1, DatabaseResult::OKAY, &MODULE_CONTACTS, 1,
                  false},
        ChainCase{"NotFoundModuleFailsKeepsNotFound", false, true, false, "fail", -1, DatabaseResult::NOTFOUND, &NONE,
                  1, false},
        ChainCase{"NotFoundWithoutCondition", false, false, true, "two", -1, DatabaseResult::NOTFOUND, &NONE, 0, false},
        ChainCase{"NoContactsAsksModule", false, false, true, "two", 0, DatabaseResult::OKAY, &MODULE_CONTACTS, 1,
                  true},
        ChainCase{"NoContactsModuleDeclines", false, false, true, "unknown", 0, DatabaseResult::OKAY, &NONE, 1, true},
        ChainCase{"NoContactsWithoutCondition", false, true, false, "two", 0, DatabaseResult::OKAY, &NONE, 0, true},
        ChainCase{"ContactsFoundModuleNotAsked", false, true, true, "two", 2, DatabaseResult::OKAY, nullptr, 0, true}),
    [](const testing::TestParamInfo<ChainCase>& info) { return std::string(info.param.name); });

TEST_F(Routing, ModuleAnswersAsItsStatusSays) {
    const std::pair<const char*, DatabaseResult::status> cases[] = {
        {"sip:two@example.com", DatabaseResult::OKAY},
        {"sip:none@example.com", DatabaseResult::OKAY},
        {"sip:odd@example.com", DatabaseResult::OKAY},
        {"sip:unknown@example.com", DatabaseResult::NOTFOUND},
        {"sip:other@example.com", DatabaseResult::NOTFOUND},
        {"sip:fail@example.com", DatabaseResult::CONNECTION_ERROR}};
    for (const auto& c : cases) {
        std::vector<ContactRecord> list(1);
        list[0].setAddress("sip:kept@192.0.2.9");
        std::string order;
        bool replace = true;
        EXPECT_EQ(c.second, service.lookupAlternate(c.first, order, replace, list).m_status) << c.first;
        Addresses expected{"sip:kept@192.0.2.9"};
        if (c.first == std::string("sip:two@example.com"))
            expected.insert(expected.end(), MODULE_CONTACTS.begin(), MODULE_CONTACTS.end());
        EXPECT_EQ(expected, addresses(list)) << c.first;
    }
    EXPECT_EQ((std::vector<std::string>{
                  "database failure - lookupAlternate. routing service unreachable for sip:fail@example.com"}),
              alarms.texts("zuVELMProxyDBAccessFailed"));
}

struct CacheCase {
    const char* name;
    const char* setting;
    // Ordering of the cached entry; null: nothing cached.
    const char* cached;
    DatabaseResult::status status;
    bool fromCache;
    const char* ordering;
};

class ContactsCacheChoice : public Routing, public testing::WithParamInterface<CacheCase> {};

TEST_P(ContactsCacheChoice, OnlyExactTrueUsesTheCache) {
    const CacheCase& c = GetParam();
    int key = provision(1, "carol", 2, c.cached != nullptr ? c.cached : "sequential");
    AppProperties::set("SipServer", "UseContactsCache", c.setting);
    ContactRecord cachedContact;
    cachedContact.setAddress("sip:carol@cache.example.com");
    if (c.cached != nullptr)
        LocalContactsCache::shared().store("PROXY", key, {cachedContact}, c.cached, false);
    DatabaseResult result = route("sip:carol@example.com");
    EXPECT_EQ(c.status, result.m_status) << result.getErrorMessage();
    if (!result.okay()) {
        EXPECT_TRUE(contacts.empty());
        EXPECT_EQ((std::vector<std::string>{"database failure - lookupContacts_2. "}),
                  alarms.texts("zuVELMProxyDBAccessFailed"));
        return;
    }
    EXPECT_EQ(c.fromCache ? Addresses{"sip:carol@cache.example.com"} : stored("carol", 2), addresses(contacts));
    EXPECT_EQ(c.ordering, ordering);
    EXPECT_EQ(!c.fromCache, redirect);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, ContactsCacheChoice,
    testing::Values(CacheCase{"CachedEntry", "true", "sequential", DatabaseResult::OKAY, true, "sequential"},
                    CacheCase{"CapitalTrueIsOff", "True", "sequential", DatabaseResult::OKAY, false, "sequential"},
                    CacheCase{"MissIsAnError", "true", nullptr, DatabaseResult::QUERY_ERROR, false, ""},
                    // The database rotates a cycle and reports it sequential.
                    CacheCase{"CycleIsReadAgain", "true", "cycle", DatabaseResult::OKAY, false, "sequential"}),
    [](const testing::TestParamInfo<CacheCase>& info) { return std::string(info.param.name); });

TEST_F(Routing, RequestUriIsCheckedAndLowerCased) {
    provision(1, "alice", 1);
    velmtest::TraceCapture capture({"LocationService", "performance"});
    ASSERT_TRUE(route("sip:Alice@EXAMPLE.com;transport=tcp").okay());
    EXPECT_EQ(stored("alice", 1), addresses(contacts));
    EXPECT_TRUE(capture.contains("LocationService", "--- SUCCESS ---: lookupContacts(alice, example.com, ...)"));
    auto timing = capture.lines("performance");
    ASSERT_EQ(1u, timing.size());
    EXPECT_EQ(0u, timing[0].find("lookupContacts (sip:Alice@EXAMPLE.com;transport=tcp) time: "));

    for (const char* bad : {"", "alice@example.com", "sip:", "http://example.com/alice"}) {
        DatabaseResult result = route(bad);
        EXPECT_TRUE(result.queryError()) << bad;
        EXPECT_EQ("lookupContacts: invalid request uri", result.getErrorMessage());
    }
    DatabaseResult result = service.lookupContacts(nullptr, ordering, redirect, contacts, nullptr);
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(route("sip:example.com").badParameter());
    EXPECT_TRUE(route("sip:bob@example.com").notFound());
    EXPECT_TRUE(capture.contains("LocationService",
                                 "--- VISITING USER or NOT FOUND ---: lookupContacts(bob, example.com, ...)"));
    // Only requests that reached the chain are timed.
    EXPECT_EQ(3u, capture.lines("performance").size());
}

TEST_F(Routing, VisitingUserIsNotRoutedHere) {
    provision(1, "dave", 1);
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1')");
    db.admin().exec("INSERT INTO velm_users VALUES (1, 2)");
    DatabaseResult result = route("sip:dave@example.com");
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(contacts.empty());
    db.admin().exec("UPDATE velm_users SET node_id = 1");
    EXPECT_TRUE(route("sip:dave@example.com").okay());
    EXPECT_EQ(stored("dave", 1), addresses(contacts));
}

TEST_F(Routing, KeyLookups) {
    int key = provision(1, "erin", 2, "cycle");
    velmtest::Provisioning(db.admin()).publicAddress(2, "erin.alias", "example.com", 1, false);
    std::vector<ContactRecord> list;
    std::string order;
    bool replace = false;
    ASSERT_TRUE(service.lookupContacts(key, order, replace, list).okay());
    EXPECT_EQ(2u, list.size());
    EXPECT_EQ("sequential", order);

    list.clear();
    int primaryId = -1;
    ASSERT_TRUE(service.lookupContactsNoCache(2, order, replace, list, primaryId).okay());
    EXPECT_EQ(key, primaryId);
    EXPECT_EQ("cycle", order);
    EXPECT_EQ(stored("erin", 2), addresses(list));

    velmtest::TraceCapture capture({});
    primaryId = -1;
    list.clear();
    EXPECT_TRUE(service.lookupContactsNoCache(999, order, replace, list, primaryId).okay());
    EXPECT_EQ(-1, primaryId);
    EXPECT_TRUE(capture.contains("LocationService", "No primary key was found in lookupContactsNoCache for key 999"));
}

TEST(RoutingUnconnected, EveryLookupNeedsTheConnection) {
    LocationService service;
    std::string text;
    bool flag = false;
    std::vector<ContactRecord> contacts;
    int primaryId = 0;
    EXPECT_TRUE(service.lookupContacts("alice", "example.com", "sip:alice@example.com", text, flag, contacts)
                    .connectionError());
    EXPECT_TRUE(service.lookupContacts(1, text, flag, contacts).connectionError());
    EXPECT_TRUE(service.lookupContactsNoCache(1, text, flag, contacts, primaryId).connectionError());
    EXPECT_TRUE(service.getDefaultRoute(text, flag, contacts).connectionError());
    EXPECT_TRUE(service.getOutboundRoute("sip:bob@example.com", false, text, flag).connectionError());
}

TEST_F(Routing, ThreadsRouteWhileThePrimaryDomainChanges) {
    provision(1, "frank", 2);
    db.admin().exec("INSERT INTO acp (acp_id, name) VALUES (1, 'bridges')");
    db.admin().exec("INSERT INTO extension (extension, acp_id, ext_type) VALUES ('7001', 1, 'c')");
    std::atomic<bool> routing{true};
    std::atomic<int> failures{0};
    std::atomic<int> conferences{0};
    std::thread changer([&] {
        for (int round = 0; routing; ++round) {
            LocationService().setPrimaryDomain(round % 2 == 0 ? "example.org" : "example.com");
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    std::vector<std::thread> routers;
    for (int thread = 0; thread < 8; ++thread)
        routers.emplace_back([&] {
            LocationService mine;
            if (!mine.connect(db.name().c_str(), "velm", "").okay()) {
                ++failures;
                return;
            }
            for (int request = 0; request < 25; ++request) {
                std::string order;
                bool replace = false;
                std::vector<ContactRecord> found;
                DatabaseResult result = mine.lookupContacts("sip:frank@example.com", order, replace, found, nullptr);
                if (!result.okay() || addresses(found) != stored("frank", 2))
                    ++failures;
                found.clear();
                // The server's own URI follows the domain of the moment.
                if (mine.lookupContacts("sip:confsvr@example.org", order, replace, found, nullptr).okay() &&
                    order == "redirect")
                    ++conferences;
            }
        });
    for (std::thread& router : routers)
        router.join();
    routing = false;
    changer.join();
    EXPECT_EQ(0, failures);
    EXPECT_LE(conferences, 1) << "one bridge can be reserved once";
}
