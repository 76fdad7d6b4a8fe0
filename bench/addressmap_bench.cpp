// Routing by address map against a real server: every lookup reads all rows
// of address_map, so its cost grows with the table; measured next to the
// contact query it ends with. And the trusted-host check many threads make
// on the process's one list. Needs VELM_BENCH_DATABASE and PGHOST/PGPORT
// (see scripts/bench).
#include "AddressMapRecord.h"
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "TrustedHostRecord.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <string>
#include <vector>

namespace {

const int GATEWAY = 900001;

// `rows` address maps, of which only the last one tried matches "sip:00...",
// routing to a gateway with two contacts.
bool provision(velm::LocationService& service, int rows) {
    const std::string gateway = std::to_string(GATEWAY);
    const std::string statements[] = {
        "DELETE FROM address_map",
        "DELETE FROM contact_set WHERE csid = " + gateway,
        "INSERT INTO contact_set (csid, ordering) VALUES (" + gateway + ", 'sequential')",
        "INSERT INTO contact (csid, address, qvalue, permanent) VALUES (" + gateway +
            ", 'sip:$user@gw1.example.com:$port', '0.800000', true), (" + gateway +
            ", 'sip:$user@gw2.example.com', '0.000000', true)",
        "INSERT INTO address_map (handle, csid, pattern, priority) SELECT 'map' || n, " + gateway +
            ", '^sip:' || n || '[0-9]*@example\\.com$', n FROM generate_series(1, " + std::to_string(rows - 1) + ") n",
        "INSERT INTO address_map (handle, csid, pattern, priority) VALUES ('last', " + gateway + ", '^sip:00', " +
            std::to_string(rows) + ")",
    };
    for (const std::string& statement : statements)
        if (!service.executeCmd(statement).okay())
            return false;
    return true;
}

void LookupAddressMap(benchmark::State& state) {
    velm::LocationService service;
    if (!velmbench::connect(service) || !provision(service, static_cast<int>(state.range(0))))
        return state.SkipWithError("cannot provision the address maps");
    for (auto _ : state) {
        velmbench::markIteration(*service.m_exec);
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        if (!service.lookupAddressMap("sip:0044123@example.com:5060", ordering, redirect, contacts).okay() ||
            contacts.size() != 2)
            return state.SkipWithError("lookup failed");
    }
}
BENCHMARK(LookupAddressMap)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

// The part of the lookup that reads the rows.
void ReadAddressMaps(benchmark::State& state) {
    velm::LocationService service;
    if (!velmbench::connect(service) || !provision(service, static_cast<int>(state.range(0))))
        return state.SkipWithError("cannot provision the address maps");
    for (auto _ : state) {
        std::vector<velm::AddressMapRecord> rows;
        if (!service.m_exec->getAddressMaps(rows).okay())
            return state.SkipWithError("reading failed");
    }
}
BENCHMARK(ReadAddressMaps)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

// The contact query alone, as the lookup makes it once it has its match.
void ContactQueryAlone(benchmark::State& state) {
    velm::LocationService service;
    if (!velmbench::connect(service) || !provision(service, 10))
        return state.SkipWithError("cannot provision the gateway");
    for (auto _ : state) {
        std::string ordering;
        bool replaceUri = true;
        std::vector<velm::ContactRecord> contacts;
        if (!service.m_exec->lookupContacts(ordering, GATEWAY, replaceUri, contacts).okay() || contacts.size() != 2)
            return state.SkipWithError("lookup failed");
    }
}
BENCHMARK(ContactQueryAlone)->Unit(benchmark::kMicrosecond);

// 1 000 trusted hosts; the host asked for is the last one, so every check
// scans the whole list copy.
void IsTrustedHost(benchmark::State& state) {
    static std::once_flag listSet;
    std::call_once(listSet, [] {
        std::vector<velm::TrustedHostRecord> hosts(1000);
        for (int n = 0; n < 1000; ++n)
            hosts[n].setName("10.0." + std::to_string(n / 256) + "." + std::to_string(n % 256));
        velm::LocationService().setTrustedHosts(hosts);
    });
    velm::LocationService service;
    for (auto _ : state)
        if (!service.isTrustedHost("10.0.3.231", ""))
            return state.SkipWithError("host not trusted");
}
BENCHMARK(IsTrustedHost)->Threads(1)->Threads(8)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
