// The digit-prefix tree: walks of the tree alone, a rebuild from the table,
// and the digit-map lookup of a request (the tree under its lock, then the
// contact query) from 1, 2 and 8 threads, beside the same statements without
// the tree lock. The database ones need VELM_BENCH_DATABASE and PGHOST/PGPORT
// (see scripts/bench); with VELM_BENCH_CAPTURE set, every lookup is preceded
// by a marking statement so that its statements can be replayed by pgbench.
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "PrefixMap.h"
#include "PrefixMapRecord.h"
#include "QuietStdout.h"
#include "SafeLock.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

using velm::LocationService;

namespace {

// Ids far above any filled population.
const std::string BULK_SET = "2000000002";
const char* const NUMBER = "sip:9991234567@bench.velm.test";

std::string digits(std::mt19937& random, int length) {
    std::string text;
    for (int index = 0; index < length; ++index)
        text += static_cast<char>('0' + random() % 10);
    return text;
}

// A tree of `count` random prefixes of 1 to 12 digits, built in memory, and
// random ten-digit numbers to route through it.
void FindPrefix(benchmark::State& state) {
    LocationService service;
    std::mt19937 random(42);
    LocationService::m_prefixMap = new velm::PrefixMap();
    for (int row = 0; row < state.range(0); ++row)
        service.addPrefixNode(digits(random, 1 + static_cast<int>(random() % 12)).c_str(), 0, row + 1, 0,
                              LocationService::m_prefixMap);
    std::vector<std::string> users;
    for (int index = 0; index < 4096; ++index)
        users.push_back(digits(random, 10));
    size_t next = 0;
    int found = 0;
    osk::withCancelSafeLock(LocationService::m_mutexPrefix, [&] {
        for (auto _ : state) {
            int csid = 0;
            service.findPrefix(users[next++ & 4095].c_str(), csid, 0, LocationService::m_prefixMap);
            found += csid > 0;
        }
    });
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(state.iterations());
    service.destroyPrefixmap();
}
BENCHMARK(FindPrefix)->Arg(10000)->Arg(100000);

// The contact set the lookups route to, its two contacts and prefix 999; and
// `bulk` further random prefixes for the rebuild.
bool provision(LocationService& service, int bulk) {
    const char* statements[] = {
        "INSERT INTO subscriber (sid, auth_user_id) VALUES (2000000001, 'prefix-bench') ON CONFLICT DO NOTHING",
        "INSERT INTO contact_set (csid, sid) VALUES (2000000001, 2000000001), (2000000002, 2000000001) "
        "ON CONFLICT DO NOTHING",
        "DELETE FROM contact WHERE csid = 2000000001",
        "INSERT INTO contact (csid, address, qvalue, expires, permanent) VALUES "
        "(2000000001, 'sip:gw@192.0.2.1:5060;transport=tcp', '0.800000', 0, true), "
        "(2000000001, 'sip:gw@192.0.2.2:5060', '0.000000', 0, true)",
        "DELETE FROM prefix_map WHERE csid IN (2000000001, 2000000002)",
        "INSERT INTO prefix_map (prefix, csid) VALUES ('999', 2000000001)",
    };
    for (const char* sql : statements)
        if (!service.m_exec->execute(sql).okay())
            return false;
    return bulk == 0 ||
           service.m_exec
               ->execute("INSERT INTO prefix_map (prefix, csid) SELECT substr((random() * 1e12)::bigint::text, 1, "
                         "1 + (random() * 11)::int), " +
                         BULK_SET + " FROM generate_series(1, " + std::to_string(bulk) + ")")
               .okay();
}

void dropBulk(LocationService& service) {
    service.m_exec->execute("DELETE FROM prefix_map WHERE csid = " + BULK_SET);
}

// Reading the rows alone, then the whole rebuild: the difference is the tree.
void ReadPrefixRows(benchmark::State& state) {
    LocationService service;
    if (!velmbench::connect(service) || !provision(service, static_cast<int>(state.range(0))))
        return state.SkipWithError("cannot connect and provision");
    {
        velmctl::QuietStdout quiet;
        for (auto _ : state) {
            std::vector<velm::PrefixMapRecord> maps;
            if (!service.getPrefixMap(maps).okay())
                return state.SkipWithError("reading failed");
        }
    }
    state.SetItemsProcessed(state.iterations());
    dropBulk(service);
}
BENCHMARK(ReadPrefixRows)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

void RebuildPrefixMap(benchmark::State& state) {
    LocationService service;
    if (!velmbench::connect(service) || !provision(service, static_cast<int>(state.range(0))))
        return state.SkipWithError("cannot connect and provision");
    {
        velmctl::QuietStdout quiet;
        for (auto _ : state)
            if (!service.recreatePrefixMap().okay())
                return state.SkipWithError("rebuild failed");
    }
    state.SetItemsProcessed(state.iterations());
    service.destroyPrefixmap();
    dropBulk(service);
}
BENCHMARK(RebuildPrefixMap)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every thread has its own connection; the first provisions and builds the
// tree before the timed loop starts.
void LookupDigitMap(benchmark::State& state) {
    LocationService service;
    bool ready = velmbench::connect(service);
    if (state.thread_index() == 0) {
        velmctl::QuietStdout quiet;
        ready = ready && provision(service, 0) && service.recreatePrefixMap().okay();
    }
    if (!ready)
        return state.SkipWithError("cannot connect and provision");
    for (auto _ : state) {
        velmbench::markIteration(*service.m_exec);
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        if (!service.lookupDigitMap(NUMBER, ordering, redirect, contacts).okay() || contacts.size() != 2)
            return state.SkipWithError("lookup failed");
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
        service.destroyPrefixmap();
}
BENCHMARK(LookupDigitMap)->Unit(benchmark::kMicrosecond)->UseRealTime()->Threads(1)->Threads(2)->Threads(8);

// The statements of a lookup without the tree lock: what the lock costs is
// the difference from LookupDigitMap at the same thread count.
void ContactQueryWithoutTreeLock(benchmark::State& state) {
    LocationService service;
    bool ready = velmbench::connect(service);
    if (state.thread_index() == 0)
        ready = ready && provision(service, 0);
    if (!ready)
        return state.SkipWithError("cannot connect and provision");
    for (auto _ : state) {
        velmbench::markIteration(*service.m_exec);
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        if (!service.isLocalUser("9991234567", "bench.velm.test").okay() ||
            !service.m_exec->lookupContacts(ordering, 2000000001, redirect, contacts).okay() || contacts.size() != 2)
            return state.SkipWithError("lookup failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ContactQueryWithoutTreeLock)->Unit(benchmark::kMicrosecond)->UseRealTime()->Threads(1)->Threads(2)->Threads(8);

} // namespace

BENCHMARK_MAIN();
