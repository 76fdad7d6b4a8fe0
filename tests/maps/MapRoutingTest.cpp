// Routing by the digit-prefix tree, the digit map and the address map, their refusals and failures, and the thread that rebuilds the tree.
#include "AddressMap.h"
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "Console.h"
#include "ContactRecord.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "MonitorWatch.h"
#include "PrefixMapMonitor.h"
#include "PrefixMapRecord.h"
#include "PrefixMaps.h"
#include "Provisioning.h"
#include "Registrations.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using velm::DatabaseResult;
using velm::LocationService;
using velm::LocationServicePool;
using velm::PrefixMapMonitor;
using Names = std::vector<std::string>;

namespace {

const char* const MODIFIED = "'Sun Nov 15 06:20:45 2026'";
const char* const FAILED = "zuVELMProxyDBAccessFailed";
const char* const WOKE = "prefix map thread checking for updates";

using Lookup = DatabaseResult (LocationService::*)(const char*, std::string&, bool&, std::vector<velm::ContactRecord>&);

struct PrefixRow { const char* prefix; int csid; int totalLength; };

class MapRouting : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "pw").okay());
        velmtest::Provisioning provisioning(db.admin());
        provisioning.subscriber(1);
        for (int csid = 2; csid <= 9; ++csid)
            provisioning.contactSet(csid, 1);
    }
    void TearDown() override { service.destroyPrefixmap(); }

    void fill(const std::vector<PrefixRow>& rows) {
        db.admin().exec("TRUNCATE prefix_map");
        for (const PrefixRow& row : rows)
            db.admin().exec(std::string("INSERT INTO prefix_map (prefix, csid, total_length) VALUES ('") + row.prefix +
                            "', " + std::to_string(row.csid) + ", " + std::to_string(row.totalLength) + ")");
    }
    int find(const char* user, int start = 0) { return velmtest::prefixCsid(service, user, start); }

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
    Names route(const char* requestUri, DatabaseResult& result, Lookup lookup = &LocationService::lookupAddressMap) {
        redirect = true;
        std::vector<velm::ContactRecord> contacts;
        result = (service.*lookup)(requestUri, ordering, redirect, contacts);
        return velmtest::addresses(contacts);
    }
    Names keys() { return service.getMapKeys(keyList), keyList; }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
    std::string ordering;
    bool redirect = true;
    Names keyList;
};

} // namespace

TEST_F(MapRouting, PrefixWalkLeavesTheCsidOfTheDeepestMatchingNode) {
    struct Case { const char* what; std::vector<PrefixRow> rows; std::vector<std::pair<const char*, int>> lookups; };
    const Case cases[] = {
        {"a leaf ends the walk", {{"9", 3, 0}}, {{"9123", 3}, {"9", 3}, {"8", 0}}},
        {"an inner node on the way sets the csid back", {{"12", 5, 0}, {"1234", 7, 0}},
         {{"123", 0}, {"12345", 7}, {"12", 5}, {"1", 0}}},
        {"a shorter prefix added later marks the inner node", {{"1234", 7, 0}, {"12", 5, 0}},
         {{"12", 5}, {"123", 0}, {"1234", 7}}},
        {"a total length must equal the user's", {{"555", 8, 7}}, {{"5551234", 8}, {"555123", 0}, {"55512345", 0}}},
        {"a node of another length neither sets nor resets", {{"5", 2, 0}, {"55", 6, 4}},
         {{"551", 2}, {"5512", 6}, {"55", 2}}},
        {"the later of two equal prefixes wins", {{"7", 3, 0}, {"7", 4, 0}}, {{"7", 4}, {"70", 4}}},
        {"an empty prefix matches only an empty user", {{"", 3, 0}, {"4", 4, 0}}, {{"", 3}, {"1", 0}, {"4", 4}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        fill(c.rows);
        ASSERT_TRUE(service.recreatePrefixMap().okay());
        for (const auto& lookup : c.lookups)
            EXPECT_EQ(lookup.second, find(lookup.first)) << "user " << lookup.first;
    }
    // Where even the first digit matches nothing, the csid is left alone.
    EXPECT_EQ(42, find("9", 42));
}

TEST_F(MapRouting, PrefixTreeIsReplacedOnlyByARecreateAndFailuresLeaveNone) {
    int counter = -1;
    ASSERT_TRUE(service.checkPrefixMap(&counter).okay());
    EXPECT_EQ(0, counter);
    fill({{"9", 3, 0}, {"91", 4, 8}});
    ASSERT_TRUE(service.checkPrefixMap(&counter).okay());
    EXPECT_EQ(3, counter) << "the truncate and both inserts raise it";
    EXPECT_TRUE(service.checkPrefixMap(nullptr).badParameter());
    std::vector<velm::PrefixMapRecord> maps;
    ASSERT_TRUE(service.getPrefixMap(maps).okay());
    ASSERT_EQ(2u, maps.size());
    EXPECT_EQ("91 4 8", maps[1].prefix() + " " + std::to_string(maps[1].csid()) + " " +
                            std::to_string(maps[1].total_length()));

    ASSERT_TRUE(service.createPrefixMap().okay());
    velm::PrefixMap* first = LocationService::m_prefixMap;
    ASSERT_NE(nullptr, first);
    fill({{"8", 4, 0}});
    EXPECT_TRUE(service.createPrefixMap().okay());
    EXPECT_EQ(first, LocationService::m_prefixMap);
    EXPECT_EQ(0, find("8"));
    EXPECT_TRUE(service.recreatePrefixMap().okay());
    EXPECT_EQ(0, find("9"));
    EXPECT_EQ(4, find("8"));
    service.destroyPrefixmap();
    service.destroyPrefixmap();
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);

    ASSERT_TRUE(service.createPrefixMap().okay());
    velmtest::TraceCapture capture({"LocationService"});
    db.admin().exec("DROP TABLE prefix_map; DROP TABLE trigger_notify");
    DatabaseResult result = service.recreatePrefixMap();
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
    DatabaseResult check = service.checkPrefixMap(&counter);
    EXPECT_TRUE(result.queryError() && check.queryError());
    EXPECT_EQ((Names{"database failure - createPrefix. " + result.getErrorMessage(),
                     "database failure - checkPrefixMap. " + check.getErrorMessage()}),
              alarms.texts(FAILED));
    EXPECT_TRUE(capture.contains("LocationService", "checking of prefix_map failed"));

    // Without a connection: the guard's answer, no alarm, still no tree.
    LocationService unconnected;
    result = unconnected.createPrefixMap();
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ("lookup attempted without a database connection", result.getErrorMessage());
    EXPECT_EQ(nullptr, LocationService::m_prefixMap);
    EXPECT_EQ(2u, alarms.alarms().size());
}

// The digit map routes by prefix and rewrites only the first contact. Both maps refuse a request without user or
// host, and pass a visiting user on before reading a row: the visitor's prefix and a lost address map do not matter.
TEST_F(MapRouting, LookupsRouteByPrefixOrRefuseBeforeReadingARow) {
    velmtest::Provisioning provisioning(db.admin());
    long later = static_cast<long>(time(nullptr)) + 3600;
    provisioning.contact(2, "sip:alice@192.0.2.1:5062;transport=tcp", "0.800000", later);
    provisioning.contact(2, "sip:bob@192.0.2.2:5060", "0.0", later);
    provisioning.contact(4, "sip:carol@192.0.2.3", "0.800000", later);
    provisioning.contact(5, "garbage", "0.800000", later);
    // Subscriber 2 with visitor@example.com, served by node 7, seen from node 1.
    provisioning.subscriber(2);
    provisioning.contactSet(20, 2);
    provisioning.publicAddress(20, "visitor", "example.com", 20, true);
    db.admin().exec("INSERT INTO velm_users (sid, node_id) VALUES (2, 7); "
                    "INSERT INTO local_parameters VALUES ('boot', 'system', 'replica_id', '1'); "
                    "ALTER TABLE address_map RENAME TO lost");
    fill({{"555", 2, 0}, {"666", 3, 0}, {"777", 4, 0}, {"888", 5, 0}, {"v", 2, 0}});
    ASSERT_TRUE(service.createPrefixMap().okay());
    const Lookup digits = &LocationService::lookupDigitMap, addresses = &LocationService::lookupAddressMap;
    const auto okay = DatabaseResult::OKAY, failed = DatabaseResult::QUERY_ERROR, none = DatabaseResult::NOTFOUND;
    struct Case { Lookup lookup; const char* uri; DatabaseResult::status status; const char* message; Names routed; };
    for (const Case& c : {
             Case{digits, "sip:5551234@example.com", okay, "",
                  {"sip:5551234@192.0.2.1:5062;transport=tcp", "sip:bob@192.0.2.2:5060"}},
             // Without port and parameters the separators stay.
             Case{digits, "sips:7771@Example.com;user=phone", okay, "", {"sips:7771@192.0.2.3:;"}},
             Case{digits, "sip:4441@example.com", none, "", {}},
             Case{digits, "sip:6661@example.com", failed, "no contact found", {}},
             Case{digits, "sip:8881@example.com", failed,
                  "lookupDigitMap: contact address garbage is not a SIP URI: not a SIP URI: no scheme", {"garbage"}},
             Case{digits, "sip:visitor@example.com", none, "lookupDigitMap passed visiting user", {}},
             Case{digits, "tel:5551234", failed, "lookupDigitMap: null uri.user or .domain", {}},
             Case{digits, nullptr, failed, "null uri", {}},
             Case{addresses, "sip:visitor@example.com", none, "lookupAddressMap passed visiting user", {}},
             Case{addresses, "sip:example.com", failed, "lookupAddressMap: null uri.user or .domain", {}},
             Case{addresses, nullptr, failed, "null uri", {}},
         }) {
        DatabaseResult result;
        EXPECT_EQ(c.routed, route(c.uri, result, c.lookup)) << c.message;
        EXPECT_EQ(c.status, result.m_status) << c.message;
        EXPECT_EQ(c.message, result.getErrorMessage());
    }
    EXPECT_EQ("sequential", ordering);
    EXPECT_TRUE(alarms.alarms().empty());

    velmtest::TraceCapture capture({"LocationService"});
    db.admin().exec("DROP TABLE contact CASCADE");
    DatabaseResult result;
    route("sip:5551234@example.com", result, digits);
    EXPECT_TRUE(result.queryError());
    EXPECT_EQ(Names{"database failure - lookupDigitMap. " + result.getErrorMessage()}, alarms.texts(FAILED));
    EXPECT_TRUE(capture.contains("LocationService", "lookup failed: " + result.getErrorMessage()));

    // Without a tree nothing is read: an empty answer, no redirect.
    service.destroyPrefixmap();
    EXPECT_TRUE(route("sip:5551234@example.com", result, digits).empty());
    EXPECT_TRUE(result.okay());
    EXPECT_FALSE(redirect);
}

TEST_F(MapRouting, TheFirstMatchingAddressPatternInPriorityOrderWinsAndItsContactTakesThePartsOfTheRequest) {
    gateway(10, "sip:ten@gw.example.com");
    gateway(20, "sip:twenty@gw.example.com");
    gateway(30, "sip:thirty@gw.example.com");
    gateway(40, "sip:catchall@gw.example.com");
    row("'ones'", 10, "^sip:1", 5);
    row("'twelves'", 20, "^sip:12", 1);
    row("'twos'", 30, "^sip:2[0-9]*@", 7);
    row("'broken'", 30, "^sip:(", 0);
    row("'rest'", 40, "", 99); // an empty pattern matches every request
    DatabaseResult result;
    for (const auto& c : std::vector<std::pair<const char*, const char*>>{
             {"sip:123@example.com", "sip:twenty@gw.example.com"},
             {"sip:199@example.com", "sip:ten@gw.example.com"},
             {"sip:2@example.com", "sip:thirty@gw.example.com"},
             {"sip:2a@example.com", "sip:catchall@gw.example.com"},
             {"sips:123@example.com", "sip:catchall@gw.example.com"}}) {
        EXPECT_EQ(Names{c.second}, route(c.first, result)) << c.first;
        EXPECT_TRUE(result.okay()) << c.first << ": " << result.getErrorMessage();
    }
    EXPECT_EQ((Names{"broken-30", "twelves-20", "ones-10", "twos-30", "rest-40"}), keys());

    // Requests for bob match only the catch-all, whose contact is rewritten from the request.
    struct Case { const char *stored, *uri, *routed; };
    for (const Case& c : {
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
        db.admin().exec(std::string("UPDATE contact SET address = '") + c.stored + "' WHERE csid = 40");
        EXPECT_EQ(Names{c.routed}, route(c.uri, result)) << c.stored << " for " << c.uri;
    }
    db.admin().exec("DELETE FROM address_map WHERE handle = 'rest'");
    EXPECT_TRUE(route("sip:2a@example.com", result).empty());
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(alarms.alarms().empty());
}

TEST_F(MapRouting, AddressEntriesFollowTheRowsAndPatternsAreCompiledAgainOnlyWhenNewer) {
    gateway(10, "sip:ten@gw.example.com");
    gateway(20, "sip:twenty@gw.example.com");
    // Two rows with the same key, and one without a handle.
    row("'gw'", 10, "^sip:1", 1);
    row("'gw'", 10, "^sip:2", 2);
    row("NULL", 20, "^sip:3", 3);
    DatabaseResult result;
    EXPECT_EQ(Names{"sip:ten@gw.example.com"}, route("sip:1@example.com", result));
    EXPECT_EQ((Names{"gw-10", "gw-10", "-20"}), keys());
    std::set<velm::AddressMap*> entries(service.m_addrMap.begin(), service.m_addrMap.end());
    EXPECT_EQ(3u, entries.size());

    // New priorities reorder the entries that are there; nothing is made anew.
    velmtest::TraceCapture capture({"LocationService", "AddressMap"});
    db.admin().exec("UPDATE address_map SET priority = 0 WHERE handle IS NULL");
    EXPECT_EQ(Names{"sip:twenty@gw.example.com"}, route("sip:3@example.com", result));
    EXPECT_EQ((Names{"-20", "gw-10", "gw-10"}), keys());
    EXPECT_EQ(entries, std::set<velm::AddressMap*>(service.m_addrMap.begin(), service.m_addrMap.end()));

    // One of the twins goes: the other keeps its entry and its pattern.
    db.admin().exec("DELETE FROM address_map WHERE pattern = '^sip:1'");
    EXPECT_EQ(Names{"sip:ten@gw.example.com"}, route("sip:2@example.com", result));
    EXPECT_EQ((Names{"-20", "gw-10"}), keys());
    std::string twin = "gw-10";
    ASSERT_NE(nullptr, service.lookupMapEntry(twin));
    EXPECT_EQ("^sip:2", service.lookupMapEntry(twin)->pattern());

    // A changed pattern counts only once its row is newer.
    auto routesFour = [&](const std::string& modified) {
        db.admin().exec("UPDATE address_map SET pattern = '^sip:4', modification_time = " + modified +
                        " WHERE handle = 'gw'");
        return route("sip:4@example.com", result).size() == 1;
    };
    EXPECT_FALSE(routesFour(MODIFIED));
    EXPECT_TRUE(capture.contains("AddressMap", "expression already compiled"));
    EXPECT_FALSE(routesFour("'Sun Nov 15 06:20:44 2026'"));
    EXPECT_TRUE(routesFour("'Sun Nov 15 06:20:46 2026'"));
    EXPECT_TRUE(capture.contains("AddressMap", "compiling expression '^sip:4'"));

    // Failures are alarmed by step and keep the list.
    db.admin().exec("ALTER TABLE address_map RENAME TO lost");
    DatabaseResult second;
    route("sip:4@example.com", result);
    db.admin().exec("ALTER TABLE lost RENAME TO address_map; ALTER TABLE contact RENAME TO lost");
    route("sip:4@example.com", second);
    EXPECT_TRUE(result.queryError() && second.queryError());
    EXPECT_EQ((Names{"-20", "gw-10"}), keys());
    EXPECT_EQ((Names{"database failure - lookupAddressMap_1. " + result.getErrorMessage(),
                     "database failure - lookupAddressMap_2. " + second.getErrorMessage()}),
              alarms.texts(FAILED));
    service.removeMapEntry(twin);
    EXPECT_EQ(Names{"-20"}, keys());
    db.admin().exec("ALTER TABLE lost RENAME TO contact; DELETE FROM address_map");
    EXPECT_TRUE(route("sip:4@example.com", result).empty());
    EXPECT_TRUE(result.notFound());
    EXPECT_TRUE(keys().empty());
}

// Every test runs in a process of its own, so each starts without monitor, pool or tree.
class PrefixMapMonitorThread : public MapRouting {
protected:
    void SetUp() override {
        MapRouting::SetUp();
        velm::AppProperties::set("Database", "ProxyDatabaseUser", "velm");
        velm::AppProperties::set("Services", "velm.sip.db", db.name().c_str());
        velm::AppProperties::set("SipServer", "PrefixMapInterval", "1");
    }
    void TearDown() override {
        PrefixMapMonitor::destroy();
        LocationServicePool::destroy();
        MapRouting::TearDown();
    }

    size_t count(const char* channel, const std::string& text) const {
        auto lines = capture.lines(channel);
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
    }
    // Polls `done` for up to a minute: generous for a loaded machine.
    static bool waitFor(const std::function<bool()>& done) {
        for (int attempt = 0; attempt < 3000 && !done(); ++attempt)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return done();
    }
    // After two more wake-ups at least one whole check has run since the call.
    void waitCycles(size_t n) {
        size_t target = count("PrefixMapMonitor", WOKE) + n;
        ASSERT_TRUE(waitFor([&] { return count("PrefixMapMonitor", WOKE) >= target; })) << "the thread stopped polling";
    }
    size_t rebuilds() const { return count("LocationService", "createPrefix CALLED\n"); }

    velmtest::TraceCapture capture{{"PrefixMapMonitor", "LocationService"}};
};

// Eight threads route numbers through the tree while the thread rebuilds it under them.
TEST_F(PrefixMapMonitorThread, RebuildsOnceForEveryRiseOfTheCounterUnderRunningLookups) {
    velmtest::Provisioning(db.admin()).contact(3, "sip:alice@192.0.2.1:5060", "0.800000", time(nullptr) + 3600);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('555', 3)");
    ASSERT_TRUE(service.createPrefixMap().okay());
    PrefixMapMonitor::instance();
    // Rows added before the thread's first reading cause no rebuild.
    waitCycles(1);
    const size_t before = rebuilds();

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<int> lookups(8, 0);
    std::vector<std::thread> workers;
    for (int index = 0; index < 8; ++index)
        workers.emplace_back([&, index] {
            LocationService* mine = LocationServicePool::Instance()->getConnection();
            const std::string user = "555" + std::to_string(1000 + index), uri = "sip:" + user + "@example.com";
            const Names routed{"sip:" + user + "@192.0.2.1:5060;"};
            for (; !stop; ++lookups[index]) {
                std::string ordering;
                bool redirect = false;
                std::vector<velm::ContactRecord> contacts;
                velm::DatabaseResult result = mine->lookupDigitMap(uri.c_str(), ordering, redirect, contacts);
                wrong += !result.okay() || velmtest::addresses(contacts) != routed;
                // At a request's pace: the lock is not fair, and back-to-back takers can keep the rebuild out.
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    // The table's trigger raises the counter by one.
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    EXPECT_TRUE(waitFor([&] { return find("9") == 3; }));
    waitCycles(2);
    EXPECT_EQ(before + 1, rebuilds());
    // Two rises seen at one check: one rebuild. Lowered, and raised again but not above the highest seen: none.
    for (auto step : std::vector<std::pair<int, size_t>>{{4, 2}, {1, 2}, {3, 2}, {5, 3}}) {
        db.admin().exec("UPDATE trigger_notify SET update_ctr = " + std::to_string(step.first));
        waitCycles(3);
        EXPECT_EQ(before + step.second, rebuilds()) << "counter " << step.first;
    }
    stop = true;
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_EQ(0, std::count(lookups.begin(), lookups.end(), 0)) << "threads that never looked up";
}

namespace {

// What the library prints while a host's sink is installed.
std::mutex printedMutex;
Names printedLines;
void keepPrinted(const char* text) {
    std::lock_guard<std::mutex> lock(printedMutex);
    printedLines.emplace_back(text);
}

} // namespace

TEST_F(PrefixMapMonitorThread, CheckNowAndDestroyDoNotWaitForTheIntervalAndThePoolWaitsForThem) {
    velm::AppProperties::set("SipServer", "PrefixMapInterval", "3600");
    const std::string checking = "checking trigger_notify table for prefix_map update";
    PrefixMapMonitor::instance();
    // The initial reading and the first cycle's: then it waits an hour.
    ASSERT_TRUE(waitFor([&] { return count("LocationService", checking) >= 2; }));
    LocationServicePool::destroy();
    EXPECT_TRUE(capture.contains("LocationService",
                                 "LocationServicePool::destroy() refused: the PrefixMapMonitor thread still uses a "
                                 "connection of the pool; call PrefixMapMonitor::destroy() first"));

    // The thread's connection is still there and still works; its printed line goes to the host's sink.
    velm::Console::setSink(&keepPrinted);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    PrefixMapMonitor::instance()->checkNow();
    EXPECT_TRUE(waitFor([&] { return find("9") == 3; }));
    velm::Console::setSink(nullptr);
    EXPECT_EQ(0u, count("PrefixMapMonitor", WOKE));
    EXPECT_EQ(Names{"getPrefixMaps retrieved 1 rows\n"}, [] {
        std::lock_guard<std::mutex> lock(printedMutex);
        return printedLines;
    }());

    // What it prints reaches the descriptor at once, flushed by the library.
    int pipe[2], saved = dup(1);
    ASSERT_EQ(0, ::pipe(pipe));
    std::fflush(stdout);
    dup2(pipe[1], 1);
    PrefixMapMonitor::destroy();
    dup2(saved, 1);
    close(pipe[1]);
    char printed[100];
    EXPECT_EQ("interrupting PrefixMapMonitor thread\ndone\n", std::string(printed, std::max<ssize_t>(0, read(pipe[0], printed, 100))));
    EXPECT_TRUE(capture.contains("PrefixMapMonitor", "prefix map thread shutting down"));
    EXPECT_FALSE(PrefixMapMonitor::exists());
}

// The statement that breaks the database, run before or after polling starts; the last trace; the statement that
// mends it; whether a tree is left.
struct FailureCase { const char* name; bool running; const char *statement, *trace, *repair; bool treeLeft; };
void PrintTo(const FailureCase& c, std::ostream* os) { *os << c.name; }

class PrefixMapMonitorFailure : public PrefixMapMonitorThread, public testing::WithParamInterface<FailureCase> {};

TEST_P(PrefixMapMonitorFailure, TheFirstDatabaseFailureEndsTheThread) {
    const FailureCase& c = GetParam();
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('9', 3)");
    ASSERT_TRUE(service.createPrefixMap().okay());
    if (c.running) {
        PrefixMapMonitor::instance();
        waitCycles(1);
    }
    db.admin().exec(c.statement);
    PrefixMapMonitor::instance();

    ASSERT_TRUE(waitFor([&] { return capture.contains("PrefixMapMonitor", c.trace); }));
    ASSERT_TRUE(waitFor([] { return !PrefixMapMonitor::running(); }));
    EXPECT_EQ(c.treeLeft ? 3 : 0, find("9"));
    EXPECT_EQ(c.treeLeft, LocationService::m_prefixMap != nullptr);
    EXPECT_EQ(1u, alarms.texts("zuVELMProxyDBAccessFailed").size());
    // Ended, not waiting: the shutdown finds no thread to wake.
    PrefixMapMonitor::destroy();
    EXPECT_FALSE(capture.contains("PrefixMapMonitor", "prefix map thread shutting down"));

    // velm-registrar's watch brings the monitor back once the database is, with a tree that has what changed meanwhile.
    registrar::MonitorWatch watch(1, 2);
    watch.start();
    db.admin().exec(c.repair);
    db.admin().exec("INSERT INTO prefix_map (prefix, csid) VALUES ('8', 4)");
    EXPECT_TRUE(waitFor([&] { return find("8") == 4 && find("9") == 3 && PrefixMapMonitor::running(); }));
}

const char* const HIDE_COUNTER = "ALTER TABLE trigger_notify RENAME TO hidden";
const char* const SHOW_COUNTER = "ALTER TABLE hidden RENAME TO trigger_notify";
INSTANTIATE_TEST_SUITE_P(
    Cases, PrefixMapMonitorFailure,
    testing::Values(FailureCase{"CounterGoneAtStart", false, HIDE_COUNTER, "failed to retrieve initial counter value",
                                SHOW_COUNTER, true},
                    FailureCase{"CounterGoneWhilePolling", true, HIDE_COUNTER, "failed to check the prefix map table",
                                SHOW_COUNTER, true},
                    FailureCase{"RebuildFails", true,
                                "ALTER TABLE prefix_map RENAME TO hidden; UPDATE trigger_notify SET update_ctr = 9",
                                "failed to recreate prefix table", "ALTER TABLE hidden RENAME TO prefix_map", false}),
    [](const testing::TestParamInfo<FailureCase>& info) { return std::string(info.param.name); });
