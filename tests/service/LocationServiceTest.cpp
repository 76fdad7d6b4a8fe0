// The facade itself: how configuration sets it up, its connection, the
// primary domain and trusted hosts shared by all instances, and the pool
// that gives each thread its own instance.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "QueryResultPtr.h"
#include "SigPipeHandler.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::LocationService;
using velm::LocationServicePool;
using velm::TrustedHostRecord;

namespace {

// The live sessions of `db` but the caller's, once at most `count` remain
// (the server notices an ended session a moment later).
std::set<int> liveBackends(velmtest::TestDatabase& db, size_t count) {
    std::set<int> pids;
    for (int attempt = 0; attempt < 500; ++attempt) {
        pids.clear();
        for (const auto& row : db.admin().query("SELECT pid FROM pg_stat_activity WHERE datname = '" + db.name() +
                                                "' AND pid <> pg_backend_pid()"))
            pids.insert(std::atoi(row[0].c_str()));
        if (pids.size() <= count)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return pids;
}

struct FlagCase {
    const char* section;
    const char* key;
    const char* value;
    bool autoCommit;
    bool moduleFirst;
    bool noContacts;
    bool notFound;
};

class LocationServiceConfiguration : public testing::TestWithParam<FlagCase> {};

} // namespace

TEST_P(LocationServiceConfiguration, SetsTheFlagsTheValueAsksFor) {
    const FlagCase& c = GetParam();
    velmtest::resetProperties();
    if (c.value != nullptr)
        AppProperties::set(c.section, c.key, c.value);
    std::unique_ptr<LocationService> service(LocationService::getConnection());
    ASSERT_NE(nullptr, service);
    // Without a database configured nothing is connected.
    EXPECT_EQ(nullptr, service->m_exec);
    EXPECT_EQ(c.autoCommit, service->m_useAutoCommit);
    EXPECT_EQ(c.moduleFirst, service->m_moduleFirst);
    EXPECT_EQ(c.noContacts, service->m_alternateOnNoContacts);
    EXPECT_EQ(c.notFound, service->m_alternateOnNotFound);
}

INSTANTIATE_TEST_SUITE_P(
    Values, LocationServiceConfiguration,
    testing::Values(FlagCase{"SipServer", "DatabaseType", "ODBC", true, false, false, false},
                    FlagCase{"SipServer", "DatabaseType", "odbc", true, false, false, false},
                    FlagCase{"SipServer", "DatabaseType", nullptr, false, false, false, false},
                    FlagCase{"LocationService", "ModuleFirst", "TRUE", false, true, false, false},
                    FlagCase{"LocationService", "ModuleFirst", "yes", false, false, false, false},
                    FlagCase{"LocationService", "ModuleCondition", "notfound;nocontacts", false, false, true, true},
                    FlagCase{"LocationService", "ModuleCondition", "NotFound", false, false, false, false},
                    FlagCase{"LocationService", "ModuleCondition", "nocontacts,other", false, false, true, false},
                    FlagCase{"LocationService", "ModuleCondition", " notfound : ", false, false, false, true}),
    [](const testing::TestParamInfo<FlagCase>& info) {
        return std::string(info.param.key) + "_" + std::to_string(info.index);
    });

TEST(LocationService, ConnectRunsCommandsAndConnectAgainReplacesTheConnection) {
    velmtest::TestDatabase first;
    velmtest::TestDatabase second;
    velmtest::AlarmCapture alarms;
    LocationService service;
    ASSERT_TRUE(service.connect(first.name().c_str(), "velm", "").okay());
    ASSERT_TRUE(service.connect(second.name().c_str(), "velm", "").okay());
    EXPECT_TRUE(service.executeCmd("CREATE TABLE scratch (n int)").okay());
    EXPECT_EQ("0", second.admin().value("SELECT count(*) FROM scratch"));
    EXPECT_TRUE(alarms.alarms().empty());
    // The first session ends.
    EXPECT_TRUE(liveBackends(first, 0).empty());
}

TEST(LocationServiceConcurrency, PrimaryDomainIsReadWholeWhileOtherThreadsChangeIt) {
    // Longer than any short-string buffer, so every change reallocates.
    const std::string domains[] = {"registrar-one.example.com", "a-much-longer-primary-domain.example.org"};
    LocationService().setPrimaryDomain(domains[0]);
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    // Other instances write and read the one domain of the process.
    for (int writer = 0; writer < 2; ++writer)
        threads.emplace_back([&, writer] {
            LocationService service;
            for (int round = 0; round < 2000; ++round)
                service.setPrimaryDomain(domains[(round + writer) % 2]);
        });
    for (int reader = 0; reader < 4; ++reader)
        threads.emplace_back([&] {
            LocationService service;
            while (!stop) {
                std::string domain = service.getPrimaryDomain();
                if (domain != domains[0] && domain != domains[1])
                    ++torn;
            }
        });
    threads[0].join();
    threads[1].join();
    stop = true;
    for (size_t t = 2; t < threads.size(); ++t)
        threads[t].join();
    EXPECT_EQ(0, torn.load());
}

TEST(LocationService, SigPipeHandlerWritesItsLineAndReturns) {
    testing::internal::CaptureStdout();
    sigPipeHandler(SIGPIPE);
    EXPECT_EQ("SIGPIPE occured for soap request\n", testing::internal::GetCapturedStdout());
}

namespace {

// Points new instances at the test's database.
void configureDatabase(const std::string& name) {
    velmtest::server();
    AppProperties::set("Database", "ProxyDatabaseUser", "velm");
    AppProperties::set("Services", "velm.sip.db", name.c_str());
}

int backendPid(LocationService& service) {
    velm::QueryResultPtr rows;
    EXPECT_TRUE(service.m_exec->execute("SELECT pg_backend_pid()", rows).okay());
    return std::atoi(rows.getValue(0, 0));
}

} // namespace

TEST(LocationServicePool, EachThreadGetsItsOwnConnectedInstance) {
    velmtest::TestDatabase db;
    configureDatabase(db.name());
    LocationServicePool pool("workers");
    LocationService* mine = pool.getConnection();
    ASSERT_NE(nullptr, mine);
    LocationService* theirs = nullptr;
    std::thread([&] { theirs = pool.getConnection(); }).join();
    ASSERT_NE(nullptr, theirs);
    EXPECT_NE(mine, theirs);
    EXPECT_TRUE(pthread_equal(pthread_self(), mine->m_threadId));
    EXPECT_NE(backendPid(*mine), backendPid(*theirs));

    EXPECT_EQ(mine, pool.getConnection());
    // Releasing ends the sessions of every thread's instance.
    pool.releaseConnections();
    EXPECT_TRUE(liveBackends(db, 0).empty());
}

TEST(LocationServicePool, SingletonLivesFromInstanceToDestroy) {
    LocationServicePool* pool = LocationServicePool::Instance();
    ASSERT_NE(nullptr, pool);
    EXPECT_EQ(pool, LocationServicePool::Instance());
    pool->setHomeNode_id(7);
    EXPECT_EQ(7, LocationServicePool::Instance()->getHomeNode_id());
    LocationServicePool::destroy();
    LocationServicePool::destroy();
    EXPECT_EQ(0, LocationServicePool::Instance()->getHomeNode_id());
    LocationServicePool::destroy();
}

TEST(LocationServicePool, FailedConnectAlarmsAndTheInstanceStaysPooled) {
    configureDatabase("no_such_database");
    velmtest::AlarmCapture alarms;
    LocationServicePool pool("failing");
    LocationService* service = pool.getConnection();
    ASSERT_NE(nullptr, service);
    EXPECT_EQ(std::vector<std::string>{"database failure - connect"}, alarms.texts("zuVELMProxyDBAccessFailed"));

    EXPECT_EQ(service, pool.getConnection());
    velm::DatabaseResult result = service->executeCmd("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ((std::vector<std::string>{"database failure - connect", "database failure - executeCmd. " +
                                                                          result.getErrorMessage()}),
              alarms.texts("zuVELMProxyDBAccessFailed"));
    pool.releaseConnections();
}

namespace {

const char* const BLOCKING = "getTrustedHosts: trusted hosts not set, blocking..";

TrustedHostRecord host(const std::string& name, bool performOrigProc) {
    TrustedHostRecord record;
    record.setName(name);
    record.setPerformOrigProc(performOrigProc);
    return record;
}

size_t linesOf(const velmtest::TraceCapture& capture, const std::string& text) {
    size_t count = 0;
    for (const std::string& line : capture.lines("velm"))
        count += line == text;
    return count;
}

// Waits (boundedly) until `count` readers have written that they block.
bool readersBlocked(const velmtest::TraceCapture& capture, size_t count) {
    for (int attempt = 0; attempt < 3000; ++attempt) {
        if (linesOf(capture, BLOCKING) >= count)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

struct Reader {
    LocationService service;
    const char* host;
    std::atomic<int> answer{-1};
};

void* readTrusted(void* argument) {
    Reader* reader = static_cast<Reader*>(argument);
    reader->answer = reader->service.isTrustedHost(reader->host, "") ? 1 : 0;
    return nullptr;
}

} // namespace

struct LookupCase {
    const char *name, *host, *hostName;
    // The record found; "untouched": none.
    const char* foundName;
    bool performOrigProc;
};

class TrustedHostLookup : public testing::TestWithParam<LookupCase> {};

TEST_P(TrustedHostLookup, TheHostNameWinsThenTheHost) {
    const LookupCase& c = GetParam();
    LocationService service;
    // Of two records with one name, the first counts.
    service.setTrustedHosts({host("10.0.0.1", false), host("proxy.example.com", true), host("10.0.0.1", true)});
    TrustedHostRecord record = host("untouched", false);
    const bool found = std::string(c.foundName) != "untouched";
    EXPECT_EQ(found, service.getTrustedHost(c.host, c.hostName, record));
    EXPECT_EQ(c.foundName, record.getName());
    EXPECT_EQ(c.performOrigProc, record.getPerformOrigProc());
    EXPECT_EQ(found, service.isTrustedHost(c.host, c.hostName));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TrustedHostLookup,
    testing::Values(LookupCase{"ByHost", "10.0.0.1", "", "10.0.0.1", false},
                    LookupCase{"NameBeforeHost", "10.0.0.1", "proxy.example.com", "proxy.example.com", true},
                    LookupCase{"HostWhenNameUnknown", "10.0.0.1", "other.example.com", "10.0.0.1", false},
                    LookupCase{"NameAlone", "192.0.2.1", "proxy.example.com", "proxy.example.com", true},
                    LookupCase{"ExactCase", "10.0.0.1x", "PROXY.example.com", "untouched", false},
                    LookupCase{"NullHost", nullptr, "proxy.example.com", "untouched", false},
                    LookupCase{"NullName", "10.0.0.1", nullptr, "untouched", false}),
    [](const testing::TestParamInfo<LookupCase>& info) { return std::string(info.param.name); });

TEST(TrustedHosts, TheServerReadsTheTableAndSetsTheListForEveryInstance) {
    velmtest::TestDatabase db;
    db.admin().exec("INSERT INTO trusted_host (name, perform_orig_proc) VALUES ('gw.example.com', true), "
                    "('10.1.1.1', NULL)");
    LocationService server;
    ASSERT_TRUE(server.connect(db.name().c_str(), "velm", "pw").okay());
    std::vector<TrustedHostRecord> hosts;
    ASSERT_TRUE(server.queryTrustedHosts(hosts).okay());
    ASSERT_EQ(2u, hosts.size());
    server.setTrustedHosts(hosts);

    LocationService worker;
    TrustedHostRecord record;
    ASSERT_TRUE(worker.getTrustedHost("192.0.2.1", "gw.example.com", record));
    EXPECT_TRUE(record.getPerformOrigProc());
    EXPECT_TRUE(worker.isTrustedHost("10.1.1.1", ""));

    // Reading the table again does not touch the list the process uses.
    db.admin().exec("DELETE FROM trusted_host");
    hosts.clear();
    ASSERT_TRUE(server.queryTrustedHosts(hosts).okay());
    EXPECT_TRUE(hosts.empty());
    EXPECT_TRUE(worker.isTrustedHost("10.1.1.1", ""));
}

TEST(TrustedHostsConcurrency, ReadersWaitForTheFirstSetAndLaterSetsReplaceTheList) {
    velmtest::TraceCapture capture({"velm"});
    Reader readers[3];
    const char* names[] = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
    pthread_t threads[3];
    for (int at = 0; at < 3; ++at) {
        readers[at].host = names[at];
        ASSERT_EQ(0, pthread_create(&threads[at], nullptr, readTrusted, &readers[at]));
    }
    ASSERT_TRUE(readersBlocked(capture, 3));
    for (const Reader& reader : readers)
        EXPECT_EQ(-1, reader.answer);

    LocationService server;
    server.setTrustedHosts({host("10.0.0.1", false), host("10.0.0.3", false)});
    for (pthread_t thread : threads)
        ASSERT_EQ(0, pthread_join(thread, nullptr));
    EXPECT_EQ(1, readers[0].answer);
    EXPECT_EQ(0, readers[1].answer);
    EXPECT_EQ(1, readers[2].answer);

    // An empty list is a list: nobody waits any more, nobody is trusted.
    server.setTrustedHosts({});
    EXPECT_FALSE(server.isTrustedHost("10.0.0.1", ""));
    EXPECT_EQ(1u, linesOf(capture, "setTrustedHosts: trusted host init done"));
}

TEST(TrustedHostsConcurrency, ACancelledReaderLeavesTheListUnlocked) {
    velmtest::TraceCapture capture({"velm"});
    Reader reader;
    reader.host = "10.0.0.1";
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, readTrusted, &reader));
    ASSERT_TRUE(readersBlocked(capture, 1));
    ASSERT_EQ(0, pthread_cancel(thread));
    void* exit = nullptr;
    ASSERT_EQ(0, pthread_join(thread, &exit));
    EXPECT_EQ(PTHREAD_CANCELED, exit);
    EXPECT_EQ(-1, reader.answer);

    ASSERT_TRUE(LocationService::m_mutex.tryLock());
    LocationService::m_mutex.unlock();
    LocationService server;
    server.setTrustedHosts({host("10.0.0.1", false)});
    EXPECT_TRUE(server.isTrustedHost("10.0.0.1", ""));
}
