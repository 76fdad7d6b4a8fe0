// The library calls velm-registrar makes for one request, without SIP and
// UDP: a REGISTER refresh (address key, bindings, refresh, bindings) and the
// request routing behind an INVITE's 302. 1, 2 and 4 threads, each with its own
// connection and its own slice of 10 000 subscribers user1..user10000 at
// bench.velm.test (provisioned here when absent, one contact each). Needs
// VELM_BENCH_DATABASE and PGHOST/PGPORT (see scripts/bench, bench/sipp).
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace {

using velm::ContactRecord;

const int SUBSCRIBERS = 10000;
const std::string DOMAIN = "bench.velm.test";

std::unique_ptr<velm::LocationService> connected() {
    const char* database = std::getenv("VELM_BENCH_DATABASE");
    auto service = std::make_unique<velm::LocationService>();
    if (database == nullptr || !service->connect(database, "velm", "").okay())
        return nullptr;
    return service;
}

// Subscriber n is userN with public address n, contact set n and the contact
// sip:userN@192.0.2.1:5060, as a phone would have registered it.
bool provision() {
    auto service = connected();
    if (!service)
        return false;
    velm::DatabaseCommandExecutor& exec = *service->m_exec;
    velm::QueryResultPtr rows;
    if (!exec.execute("SELECT count(*) FROM public_address WHERE sip_domain = '" + DOMAIN + "'", rows).okay())
        return false;
    if (std::atoi(rows.getValue(0, 0)) == SUBSCRIBERS)
        return true;
    const std::string count = std::to_string(SUBSCRIBERS);
    const std::string until = std::to_string(static_cast<long>(time(nullptr)) + 30L * 86400);
    return exec.execute("BEGIN").okay() &&
           exec.execute("INSERT INTO subscriber (sid, auth_user_id) SELECT g, 'user' || g || '@" + DOMAIN +
                        "' FROM generate_series(1, " + count + ") g").okay() &&
           exec.execute("SELECT create_public_address(g, 'user' || g, '" + DOMAIN + "') FROM generate_series(1, " +
                        count + ") g").okay() &&
           exec.execute("INSERT INTO contact (address, csid, qvalue, expires, permanent, contact_header, call_id, cseq) "
                        "SELECT 'sip:user' || g || '@192.0.2.1:5060', p.csid, '0.800000', " + until +
                        ", 'f', '<sip:user' || g || '@192.0.2.1:5060>', 'bench-' || g, 1 "
                        "FROM generate_series(1, " + count + ") g JOIN public_address p ON p.handle = 'user' || g "
                        "AND p.sip_domain = '" + DOMAIN + "'").okay() &&
           exec.execute("COMMIT").okay();
}

// Each thread walks its own slice of the subscribers, so that no two threads
// wait for each other's row locks.
std::string nextUser(const benchmark::State& state, int& step) {
    int slice = SUBSCRIBERS / state.threads();
    return "user" + std::to_string(state.thread_index() * slice + (step++ % slice) + 1);
}

bool bindings(velm::LocationService& service, int key, std::vector<ContactRecord>& contacts) {
    std::string ordering;
    bool replaceUri = true;
    return service.m_exec->lookupContacts(key, ordering, replaceUri, contacts, false).okay() && !contacts.empty();
}

void RegisterRefresh(benchmark::State& state) {
    auto service = connected();
    if (!service)
        return state.SkipWithError("cannot connect");
    int step = 0;
    long cseq = 1;
    for (auto _ : state) {
        std::string user = nextUser(state, step);
        int key = 0;
        std::vector<ContactRecord> stored, answer, added, deleted, changed;
        if (!service->getPublicAddressKey(user.c_str(), DOMAIN.c_str(), key).okay() || !bindings(*service, key, stored))
            return state.SkipWithError("no binding to refresh");
        ContactRecord contact = stored.front();
        contact.setExpires(static_cast<long>(time(nullptr)) + 3600);
        contact.setCallId("refresh-" + user);
        contact.setCseq(++cseq);
        std::vector<ContactRecord> contacts{contact};
        if (!service->updateContacts(key, contacts, added, deleted, changed).okay() || !bindings(*service, key, answer))
            return state.SkipWithError("refresh failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RegisterRefresh)->Threads(1)->Threads(2)->Threads(4)->UseRealTime()->Unit(benchmark::kMicrosecond);

void InviteRedirect(benchmark::State& state) {
    auto service = connected();
    if (!service)
        return state.SkipWithError("cannot connect");
    service->setPrimaryDomain(DOMAIN);
    int step = 0;
    for (auto _ : state) {
        std::string uri = "sip:" + nextUser(state, step) + "@" + DOMAIN;
        std::string ordering;
        bool redirect = false;
        std::vector<ContactRecord> contacts;
        if (!service->lookupContacts(uri.c_str(), ordering, redirect, contacts, nullptr).okay() || contacts.empty())
            return state.SkipWithError("lookup failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(InviteRedirect)->Threads(1)->Threads(2)->Threads(4)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!provision()) {
        std::fprintf(stderr, "registrar_path_bench: cannot reach or provision VELM_BENCH_DATABASE\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
