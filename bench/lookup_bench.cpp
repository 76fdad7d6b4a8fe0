// The read paths a proxy takes on every request, against a real server: one
// statement through the executor, and the routing lookup of a public address
// with two registered contacts (a subscriber of the fill when there is one,
// else one provisioned here). See BenchSupport.h for the environment.
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const size_t CONTACTS = 2;

bool connect(velm::DatabaseCommandExecutor& exec) {
    return velmbench::database() != nullptr && exec.connect(velmbench::database(), "velm", "");
}

// A subscriber with two contacts; returns its public address id, or 0.
int provision(velm::DatabaseCommandExecutor& exec) {
    if (velmbench::filledSubscribers() > 0)
        return velmbench::filledKey();
    static std::atomic<int> runs{0};
    const std::string user = "lookup" + std::to_string(getpid()) + "_" + std::to_string(++runs);
    velm::QueryResultPtr rows;
    if (!exec.execute("INSERT INTO subscriber (sid, auth_user_id) "
                      "VALUES ((SELECT coalesce(max(sid), 0) + 1 FROM subscriber), '" + user + "')")
             .okay() ||
        !exec.execute("SELECT create_public_address((SELECT sid FROM subscriber WHERE auth_user_id = '" + user +
                          "'), '" + user + "', 'bench.velm.test')",
                      rows)
             .okay())
        return 0;
    int key = std::atoi(rows.getValue(0, 0));
    for (size_t phone = 1; phone <= CONTACTS; ++phone) {
        velm::ContactRecord contact;
        contact.setAddress("sip:" + user + "@192.0.2." + std::to_string(phone) + ":5060");
        contact.setQvalue(phone == 1 ? "0.800000" : "0.000000");
        contact.setExpires(4102444800L);
        if (exec.addContact(user.c_str(), "bench.velm.test", contact) != 0)
            return 0;
    }
    return key;
}

void ExecuteOneRowSelect(benchmark::State& state) {
    velm::DatabaseCommandExecutor exec;
    if (!connect(exec))
        return state.SkipWithError("cannot connect");
    for (auto _ : state) {
        velmbench::markIteration(exec);
        velm::QueryResultPtr result;
        if (!exec.execute("SELECT 1", result).okay())
            return state.SkipWithError("statement failed");
        benchmark::DoNotOptimize(result.getValue(0, 0));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ExecuteOneRowSelect)->Apply(velmbench::threads);

void LookupContactsOfAPublicAddress(benchmark::State& state) {
    velm::DatabaseCommandExecutor exec;
    int key = connect(exec) ? provision(exec) : 0;
    if (key == 0)
        return state.SkipWithError("cannot provision a subscriber");
    for (auto _ : state) {
        velmbench::markIteration(exec);
        std::string ordering;
        bool replaceUri = true;
        std::vector<velm::ContactRecord> contacts;
        if (!exec.lookupContacts(key, ordering, replaceUri, contacts, true).okay() || contacts.size() != CONTACTS)
            return state.SkipWithError("lookup failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LookupContactsOfAPublicAddress)->Apply(velmbench::threads);

} // namespace

BENCHMARK_MAIN();
