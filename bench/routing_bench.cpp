// The routing question of every request, asked of LocationService with a
// request URI: a subscriber with one contact, one with three, and a number
// nobody has. The subscribers are route1@ and route3@bench.velm.test, made
// once per database. See BenchSupport.h for the environment.
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

const char* const DOMAIN_NAME = "bench.velm.test";

bool connect(velm::LocationService& service) {
    if (!velmbench::connect(service))
        return false;
    service.setPrimaryDomain(DOMAIN_NAME);
    return true;
}

// Subscriber `user` with `count` contacts, unless it is there already.
bool provision(velm::DatabaseCommandExecutor& exec, const std::string& user, int count) {
    velm::QueryResultPtr rows;
    if (!exec.execute("SELECT 1 FROM public_address WHERE handle = '" + user + "' AND sip_domain = '" + DOMAIN_NAME +
                          "'",
                      rows)
             .okay())
        return false;
    if (rows.rows() > 0)
        return true;
    if (!exec.execute("INSERT INTO subscriber (sid, auth_user_id) "
                      "VALUES ((SELECT coalesce(max(sid), 0) + 1 FROM subscriber), '" +
                      user + "')")
             .okay() ||
        !exec.execute("SELECT create_public_address((SELECT sid FROM subscriber WHERE auth_user_id = '" + user +
                          "'), '" + user + "', '" + DOMAIN_NAME + "')",
                      rows)
             .okay())
        return false;
    for (int phone = 1; phone <= count; ++phone) {
        velm::ContactRecord contact;
        contact.setAddress("sip:" + user + "@192.0.2." + std::to_string(phone) + ":5060");
        contact.setQvalue(phone == 1 ? "0.800000" : "0.000000");
        contact.setExpires(4102444800L);
        if (exec.addContact(user.c_str(), DOMAIN_NAME, contact) != 0)
            return false;
    }
    return true;
}

// Routes requests for `user` (provisioned with `count` contacts when count
// is not negative) and checks each answer.
void route(benchmark::State& state, const std::string& user, int count) {
    velm::LocationService service;
    if (!connect(service) || (count >= 0 && !provision(*service.m_exec, user, count)))
        return state.SkipWithError("cannot connect or provision");
    const std::string requestUri = "sip:" + user + "@" + DOMAIN_NAME;
    for (auto _ : state) {
        velmbench::markIteration(*service.m_exec);
        std::string ordering;
        bool redirect = false;
        std::vector<velm::ContactRecord> contacts;
        velm::DatabaseResult result = service.lookupContacts(requestUri.c_str(), ordering, redirect, contacts, nullptr);
        bool expected = count >= 0 ? result.okay() && contacts.size() == static_cast<size_t>(count) : result.notFound();
        if (!expected)
            return state.SkipWithError(("unexpected answer: " + result.getErrorMessage()).c_str());
    }
}

void RouteSubscriberWithOneContact(benchmark::State& state) {
    route(state, "route1", 1);
}
BENCHMARK(RouteSubscriberWithOneContact)->Unit(benchmark::kMicrosecond);

void RouteSubscriberWithThreeContacts(benchmark::State& state) {
    route(state, "route3", 3);
}
BENCHMARK(RouteSubscriberWithThreeContacts)->Unit(benchmark::kMicrosecond);

void RouteUnknownNumber(benchmark::State& state) {
    route(state, "4930999999", -1);
}
BENCHMARK(RouteUnknownNumber)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
