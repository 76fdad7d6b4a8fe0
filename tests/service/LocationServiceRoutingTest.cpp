// Where a request goes: the decision chain between the resolver module, the
// contacts cache and the database; the node's default route, its outbound
// policy and out-of-dialog REFER. The resolver is the test module loaded with
// dlopen; it answers by the request's user part (see
// modules/TestResolverModule.cpp). Each case runs in a process of its own.
#include "AppProperties.h"
#include "ContactsCache.h"
#include "Provisioning.h"
#include "Registrations.h"
#include "ServiceFixture.h"
#include "TestConfiguration.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using velm::AppProperties;
using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;
using velmtest::addresses;

namespace {

using Addresses = std::vector<std::string>;

const Addresses MODULE_CONTACTS{"sip:first@192.0.2.1:5060", "sip:second@192.0.2.2;transport=tcp"};
const long FAR_FUTURE = 4102444800L;

// The database's contacts of `user`: sip:<user>@192.0.2.1x.
Addresses stored(const std::string& user, int count) {
    Addresses list;
    for (int index = 0; index < count; ++index)
        list.push_back("sip:" + user + "@192.0.2.1" + std::to_string(index));
    return list;
}

class Routing : public velmtest::ServiceTest {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        AppProperties::set("LocationService", "ResolverModule", VELM_TEST_RESOLVER_MODULE);
        ServiceTest::SetUp();
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
};

long countLines(const velmtest::TraceCapture& capture, const std::string& prefix) {
    auto lines = capture.lines("LocationService");
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.compare(0, prefix.size(), prefix) == 0; });
}

struct ChainCase {
    const char* name;
    bool moduleFirst, onNotFound, onNoContacts;
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
    DatabaseResult result = lookup(requestUri);
    EXPECT_EQ(c.status, result.m_status) << result.getErrorMessage();
    EXPECT_EQ(c.answer != nullptr ? *c.answer : stored(c.user, c.registered), addresses(contacts));
    EXPECT_EQ(c.moduleAsked, countLines(capture, "looking up alternate contacts for " + requestUri));
    EXPECT_EQ(c.databaseAsked,
              capture.contains("LocationService", std::string("looking up contacts for ") + c.user + "@example.com"));
}

const DatabaseResult::status OK = DatabaseResult::OKAY;
const DatabaseResult::status NOT_FOUND = DatabaseResult::NOTFOUND;

// Module first, on not found, on no contacts; user, registered contacts;
// status, answer; module asked, database asked.
INSTANTIATE_TEST_SUITE_P(
    Matrix, DecisionChain,
    testing::Values(ChainCase{"ModuleFirstAnswers", true, false, false, "two", 1, OK, &MODULE_CONTACTS, 1, false},
                    ChainCase{"ModuleFirstEmptyIsFinal", true, true, true, "none", 1, OK, &NONE, 1, false},
                    ChainCase{"ModuleFirstFailureFallsToDatabase", true, true, true, "fail", 1, OK, nullptr, 1, true},
                    ChainCase{"ModuleFirstDeclinesNoSecondAsk", true, true, true, "unknown", 0, OK, &NONE, 1, true},
                    ChainCase{"ModuleFirstThenUnknownAddress", true, true, true, "unknown", -1, NOT_FOUND, &NONE, 1,
                              false},
                    ChainCase{"NotFoundAsksModule", false, true, false, "two", -1, OK, &MODULE_CONTACTS, 1, false},
                    ChainCase{"NotFoundModuleFailsKeepsNotFound", false, true, false, "fail", -1, NOT_FOUND, &NONE, 1,
                              false},
                    ChainCase{"NotFoundWithoutCondition", false, false, true, "two", -1, NOT_FOUND, &NONE, 0, false},
                    ChainCase{"NoContactsAsksModule", false, false, true, "two", 0, OK, &MODULE_CONTACTS, 1, true},
                    ChainCase{"NoContactsModuleDeclines", false, false, true, "unknown", 0, OK, &NONE, 1, true},
                    ChainCase{"NoContactsWithoutCondition", false, true, false, "two", 0, OK, &NONE, 0, true},
                    ChainCase{"ContactsFoundModuleNotAsked", false, true, true, "two", 2, OK, nullptr, 0, true}),
    [](const testing::TestParamInfo<ChainCase>& info) { return std::string(info.param.name); });

TEST_F(Routing, ModuleAnswersAsItsStatusSays) {
    const std::pair<const char*, DatabaseResult::status> cases[] = {
        {"sip:two@example.com", OK},                {"sip:none@example.com", OK}, {"sip:odd@example.com", OK},
        {"sip:unknown@example.com", NOT_FOUND}, {"sip:fail@example.com", DatabaseResult::CONNECTION_ERROR}};
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
    DatabaseResult result = lookup("sip:carol@example.com");
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
    testing::Values(CacheCase{"CachedEntry", "true", "sequential", OK, true, "sequential"},
                    CacheCase{"CapitalTrueIsOff", "True", "sequential", OK, false, "sequential"},
                    CacheCase{"MissIsAnError", "true", nullptr, DatabaseResult::QUERY_ERROR, false, ""},
                    // The database rotates a cycle and reports it sequential.
                    CacheCase{"CycleIsReadAgain", "true", "cycle", OK, false, "sequential"}),
    [](const testing::TestParamInfo<CacheCase>& info) { return std::string(info.param.name); });

TEST_F(Routing, RequestUriIsCheckedAndLowerCased) {
    provision(1, "alice", 1);
    ASSERT_TRUE(lookup("sip:Alice@EXAMPLE.com;transport=tcp").okay());
    EXPECT_EQ(stored("alice", 1), addresses(contacts));

    for (const char* bad : {"", "alice@example.com", "sip:", "http://example.com/alice"}) {
        DatabaseResult result = lookup(bad);
        EXPECT_TRUE(result.queryError()) << bad;
        EXPECT_EQ("lookupContacts: invalid request uri", result.getErrorMessage());
    }
    DatabaseResult result = service.lookupContacts(nullptr, ordering, redirect, contacts, nullptr);
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(lookup("sip:example.com").badParameter());
    EXPECT_TRUE(lookup("sip:bob@example.com").notFound());
}

TEST_F(Routing, VisitingUserIsNotRoutedHere) {
    provision(1, "dave", 1);
    db.admin().exec("INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1')");
    db.admin().exec("INSERT INTO velm_users VALUES (1, 2)");
    DatabaseResult result = lookup("sip:dave@example.com");
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(contacts.empty());
    db.admin().exec("UPDATE velm_users SET node_id = 1");
    EXPECT_TRUE(lookup("sip:dave@example.com").okay());
    EXPECT_EQ(stored("dave", 1), addresses(contacts));
}

TEST_F(Routing, KeyLookups) {
    int key = provision(1, "erin", 2, "cycle");
    velmtest::Provisioning(db.admin()).publicAddress(2, "erin.alias", "example.com", 1, false);
    ASSERT_TRUE(service.lookupContacts(key, ordering, redirect, contacts).okay());
    EXPECT_EQ(2u, contacts.size());
    EXPECT_EQ("sequential", ordering);

    contacts.clear();
    int primaryId = -1;
    ASSERT_TRUE(service.lookupContactsNoCache(2, ordering, redirect, contacts, primaryId).okay());
    EXPECT_EQ(key, primaryId);
    EXPECT_EQ("cycle", ordering);
    EXPECT_EQ(stored("erin", 2), addresses(contacts));

    primaryId = -1;
    contacts.clear();
    EXPECT_TRUE(service.lookupContactsNoCache(999, ordering, redirect, contacts, primaryId).okay());
    EXPECT_EQ(-1, primaryId);
}

namespace {

struct OutboundCase {
    const char* name;
    bool internal;
    const char *allowInternal, *allowExternal, *proxy, *direct, *uri;
    bool allowed;
    // What `proxy` holds afterwards; it starts as "unchanged".
    const char* proxyAfter;
};

class OutboundRoute : public Routing, public testing::WithParamInterface<OutboundCase> {};

} // namespace

TEST_P(OutboundRoute, PolicyOfTheNodeDecides) {
    const OutboundCase& c = GetParam();
    parameter("outbound_allowed_internal", c.allowInternal);
    parameter("outbound_allowed_external", c.allowExternal);
    if (c.proxy != nullptr)
        parameter("outbound_proxy", c.proxy);
    if (c.direct != nullptr)
        parameter("outbound_direct", c.direct);
    std::string proxy = "unchanged";
    bool allowed = !c.allowed;
    DatabaseResult result = service.getOutboundRoute(c.uri, c.internal, proxy, allowed);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(c.allowed, allowed);
    EXPECT_EQ(c.proxyAfter, proxy);
}

INSTANTIATE_TEST_SUITE_P(
    Policies, OutboundRoute,
    testing::Values(OutboundCase{"ExternalSwitchedOff", false, "t", "f", "proxy.example.net", nullptr,
                                 "sip:bob@far.example.org", false, "unchanged"},
                    OutboundCase{"InternalAlwaysAllowed", true, "f", "f", nullptr, nullptr, "sip:bob@near.example.org",
                                 true, ""},
                    OutboundCase{"InternalThroughProxy", true, "t", "f", "proxy.example.net", "",
                                 "sip:bob@near.example.org", true, "proxy.example.net"},
                    OutboundCase{"SecondBypassHostGoesDirect", false, "t", "t", "proxy.example.net",
                                 "a.example.com, b.example.com", "sip:bob@b.example.com:5070", true, ""},
                    OutboundCase{"BypassSeparators", true, "t", "t", "proxy.example.net",
                                 "a.example.com;c.example.com:d", "sip:bob@c.example.com", true, ""},
                    OutboundCase{"BypassIsCaseSensitive", false, "t", "t", "proxy.example.net",
                                 "a.example.com, b.example.com", "sip:bob@B.example.com", true, "proxy.example.net"}),
    [](const testing::TestParamInfo<OutboundCase>& info) { return std::string(info.param.name); });

TEST_F(Routing, DefaultRouteIsTheParentContactSet) {
    EXPECT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).notFound());
    // No parent contact set: no contacts.
    parameter("parent_contact", "");
    EXPECT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).okay());
    EXPECT_TRUE(contacts.empty());

    velmtest::Provisioning provisioning(db.admin());
    provisioning.subscriber(1);
    provisioning.contactSet(40, 1, "sequential", false);
    provisioning.permanentContact(40, "sip:upstream@192.0.2.40");
    db.admin().exec("UPDATE system_parameters SET value = '40' WHERE name = 'parent_contact'");
    redirect = true;
    ASSERT_TRUE(service.getDefaultRoute(ordering, redirect, contacts).okay());
    EXPECT_EQ("sequential", ordering);
    EXPECT_FALSE(redirect);
    EXPECT_EQ(Addresses{"sip:upstream@192.0.2.40"}, addresses(contacts));
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST(OutOfDialogRefer, AllowedUnlessSwitchedOffExplicitly) {
    const std::pair<const char*, bool> cases[] = {{nullptr, true},  {"", true},   {"false", false},
                                                  {"FALSE", false}, {"no", true}, {"true", true}};
    LocationService service;
    for (const auto& c : cases) {
        velmtest::resetProperties();
        if (c.first != nullptr)
            AppProperties::set("Proxy", "EnableOODReferRouting", c.first);
        EXPECT_EQ(c.second, service.isOODReferAllowed()) << (c.first != nullptr ? c.first : "(absent)");
    }
}
