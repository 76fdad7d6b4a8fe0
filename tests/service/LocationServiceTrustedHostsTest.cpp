// The process's trusted-host list: set once by the server at start-up, read
// by every worker thread, which waits until it has been set.
#include "LocationService.h"
#include "TestServer.h"
#include "TraceCapture.h"
#include "TrustedHostRecord.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

using velm::LocationService;
using velm::TrustedHostRecord;

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
    const char* name;
    const char* host;
    const char* hostName;
    bool found;
    const char* foundName;
    bool performOrigProc;
};

void PrintTo(const LookupCase& c, std::ostream* out) {
    *out << c.name;
}

class TrustedHostLookup : public testing::TestWithParam<LookupCase> {};

TEST_P(TrustedHostLookup, TheHostNameWinsThenTheHost) {
    const LookupCase& c = GetParam();
    LocationService service;
    // Of two records with one name, the first counts.
    service.setTrustedHosts({host("10.0.0.1", false), host("proxy.example.com", true), host("10.0.0.1", true)});
    TrustedHostRecord record = host("untouched", false);
    EXPECT_EQ(c.found, service.getTrustedHost(c.host, c.hostName, record));
    EXPECT_EQ(c.foundName, record.getName());
    EXPECT_EQ(c.performOrigProc, record.getPerformOrigProc());
    EXPECT_EQ(c.found, service.isTrustedHost(c.host, c.hostName));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TrustedHostLookup,
    testing::Values(LookupCase{"ByHost", "10.0.0.1", "", true, "10.0.0.1", false},
                    LookupCase{"NameBeforeHost", "10.0.0.1", "proxy.example.com", true, "proxy.example.com", true},
                    LookupCase{"HostWhenNameUnknown", "10.0.0.1", "other.example.com", true, "10.0.0.1", false},
                    LookupCase{"NameAlone", "192.0.2.1", "proxy.example.com", true, "proxy.example.com", true},
                    LookupCase{"Neither", "192.0.2.1", "other.example.com", false, "untouched", false},
                    LookupCase{"ExactCase", "10.0.0.1x", "PROXY.example.com", false, "untouched", false},
                    LookupCase{"NullHost", nullptr, "proxy.example.com", false, "untouched", false},
                    LookupCase{"NullName", "10.0.0.1", nullptr, false, "untouched", false}),
    [](const testing::TestParamInfo<LookupCase>& info) { return std::string(info.param.name); });

TEST(TrustedHosts, TheServerReadsTheTableAndSetsTheListForEveryInstance) {
    velmtest::TestDatabase db;
    db.admin().exec("INSERT INTO trusted_host (name, perform_orig_proc) VALUES ('gw.example.com', true), "
                    "('10.1.1.1', NULL)");
    velmtest::TraceCapture capture({"velm"});
    LocationService server;
    ASSERT_TRUE(server.connect(db.name().c_str(), "velm", "pw").okay());
    std::vector<TrustedHostRecord> hosts;
    ASSERT_TRUE(server.queryTrustedHosts(hosts).okay());
    ASSERT_EQ(2u, hosts.size());
    EXPECT_TRUE(capture.contains("velm", "QueryTrustedHost called\n"));
    server.setTrustedHosts(hosts);
    EXPECT_TRUE(capture.contains("velm", "setTrustedHosts: trusted host init done"));

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
