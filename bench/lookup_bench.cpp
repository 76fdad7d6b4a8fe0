// The read paths a proxy takes on every request, against a real server: one
// statement through the executor, the contacts of a public address key, and
// the whole routing question of a request URI, for a subscriber with two
// registered contacts (one of the fill when there is one, else one
// provisioned here). See BenchSupport.h for the environment.
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const size_t CONTACTS = 2;
const char* const DOMAIN_NAME = "bench.velm.test";

struct Subscriber {
    int key = 0; // its public address id, 0 when there is none
    std::string user;
};

bool connect(velm::DatabaseCommandExecutor& exec) {
    return velmbench::database() != nullptr && exec.connect(velmbench::database(), "velm", "");
}

// A subscriber with two contacts at DOMAIN_NAME.
Subscriber provision(velm::DatabaseCommandExecutor& exec) {
    if (velmbench::filledSubscribers() > 0) {
        int key = velmbench::filledKey();
        return {key, "sub" + std::to_string(key)};
    }
    static std::atomic<int> runs{0};
    const std::string user = "lookup" + std::to_string(getpid()) + "_" + std::to_string(++runs);
    velm::QueryResultPtr rows;
    if (!exec.execute("INSERT INTO subscriber (sid, auth_user_id) "
                      "VALUES ((SELECT coalesce(max(sid), 0) + 1 FROM subscriber), '" + user + "')")
             .okay() ||
        !exec.execute("SELECT create_public_address((SELECT sid FROM subscriber WHERE auth_user_id = '" + user +
                          "'), '" + user + "', '" + DOMAIN_NAME + "')",
                      rows)
             .okay())
        return {};
    int key = std::atoi(rows.getValue(0, 0));
    for (size_t phone = 1; phone <= CONTACTS; ++phone) {
        velm::ContactRecord contact;
        contact.setAddress("sip:" + user + "@192.0.2." + std::to_string(phone) + ":5060");
        contact.setQvalue(phone == 1 ? "0.800000" : "0.000000");
        contact.setExpires(4102444800L);
        if (exec.addContact(user.c_str(), DOMAIN_NAME, contact) != 0)
            return {};
    }
    return {key, user};
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
    const int key = connect(exec) ? provision(exec).key : 0;
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

// What a proxy asks for an INVITE: the request URI through the whole chain
// (visiting-user check, public address, contacts).
void LookupContactsOfARequestUri(benchmark::State& state) {
    velm::LocationService service;
    const Subscriber subscriber = velmbench::connect(service) ? provision(*service.m_exec) : Subscriber();
    if (subscriber.key == 0)
        return state.SkipWithError("cannot provision a subscriber");
    service.setPrimaryDomain(DOMAIN_NAME);
    const std::string requestUri = "sip:" + subscriber.user + "@" + DOMAIN_NAME;
    for (auto _ : state) {
        velmbench::markIteration(*service.m_exec);
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        if (!service.lookupContacts(requestUri.c_str(), ordering, redirect, contacts, nullptr).okay() ||
            contacts.size() != CONTACTS)
            return state.SkipWithError("lookup failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LookupContactsOfARequestUri)->Apply(velmbench::threads);

} // namespace

BENCHMARK_MAIN();
