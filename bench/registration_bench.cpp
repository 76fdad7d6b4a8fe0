// Step-by-step contact registration against a real server: one REGISTER of a
// new contact (transaction, set lock, lookup, demotion, insert, read-back,
// commit), its refresh, and its removal. Needs VELM_BENCH_DATABASE and
// PGHOST/PGPORT (see scripts/bench).
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace {

using velm::ContactRecord;

struct Subscriber {
    std::unique_ptr<velm::LocationService> service;
    int key = 0;
};

// A connected service and a public address of its own: every run of a
// benchmark (there is one per repetition) provisions a new one.
bool provision(Subscriber& subscriber, const std::string& name) {
    static int runs = 0;
    const std::string user = name + std::to_string(++runs);
    const char* database = std::getenv("VELM_BENCH_DATABASE");
    subscriber.service = std::make_unique<velm::LocationService>();
    if (database == nullptr || !subscriber.service->connect(database, "velm", "").okay())
        return false;
    velm::DatabaseCommandExecutor& exec = *subscriber.service->m_exec;
    velm::QueryResultPtr rows;
    std::string sid = "(SELECT coalesce(max(sid), 0) + 1 FROM subscriber)";
    if (!exec.execute("INSERT INTO subscriber (sid, auth_user_id) VALUES (" + sid + ", '" + user + "')").okay() ||
        !exec.execute("SELECT create_public_address((SELECT sid FROM subscriber WHERE auth_user_id = '" + user +
                          "'), '" + user + "', 'bench.velm.test')",
                      rows)
             .okay())
        return false;
    subscriber.key = std::atoi(rows.getValue(0, 0));
    return true;
}

ContactRecord contact(const std::string& uri, const std::string& qvalue) {
    ContactRecord record;
    record.setAddress(uri);
    record.setContactHeader("<" + uri + ">");
    record.setQvalue(qvalue);
    record.setExpires(static_cast<long>(time(nullptr)) + 3600);
    record.setCallId("bench-" + uri);
    record.setCseq(1);
    return record;
}

bool registerOne(Subscriber& subscriber, const ContactRecord& record) {
    std::vector<ContactRecord> contacts{record}, added, deleted, changed;
    return subscriber.service->registerContacts(subscriber.key, contacts, added, deleted, changed).okay();
}

bool unregisterOne(Subscriber& subscriber, const ContactRecord& record) {
    std::vector<ContactRecord> contacts{record}, added, deleted, changed;
    return subscriber.service->unregisterContacts(subscriber.key, contacts, added, deleted, changed).okay();
}

void StepByStepRegistration(benchmark::State& state) {
    Subscriber subscriber;
    if (!provision(subscriber, "register") ||
        !registerOne(subscriber, contact("sip:desk@192.0.2.1:5060", "")))
        return state.SkipWithError("cannot provision a subscriber");
    ContactRecord mobile = contact("sip:mobile@192.0.2.2:5060", "1.0");
    for (auto _ : state) {
        if (!registerOne(subscriber, mobile))
            return state.SkipWithError("registration failed");
        state.PauseTiming();
        bool removed = unregisterOne(subscriber, mobile);
        state.ResumeTiming();
        if (!removed)
            return state.SkipWithError("unregistration failed");
    }
}
BENCHMARK(StepByStepRegistration)->Unit(benchmark::kMicrosecond);

void StepByStepRefresh(benchmark::State& state) {
    Subscriber subscriber;
    ContactRecord desk = contact("sip:desk@192.0.2.1:5060", "");
    if (!provision(subscriber, "refresh") || !registerOne(subscriber, desk))
        return state.SkipWithError("cannot provision a subscriber");
    long cseq = 1;
    for (auto _ : state) {
        desk.setCseq(++cseq);
        std::vector<ContactRecord> contacts{desk}, added, deleted, changed;
        if (!subscriber.service->updateContacts(subscriber.key, contacts, added, deleted, changed).okay())
            return state.SkipWithError("refresh failed");
    }
}
BENCHMARK(StepByStepRefresh)->Unit(benchmark::kMicrosecond);

void ScriptRegistration(benchmark::State& state) {
    Subscriber subscriber;
    if (!provision(subscriber, "script"))
        return state.SkipWithError("cannot provision a subscriber");
    std::vector<ContactRecord> contacts{contact("sip:desk@192.0.2.1:5060", "0.8")};
    for (auto _ : state) {
        if (!subscriber.service->registerContacts(subscriber.key, contacts).okay())
            return state.SkipWithError("registration failed");
        state.PauseTiming();
        bool removed = subscriber.service->unregisterContacts(subscriber.key, contacts).okay();
        state.ResumeTiming();
        if (!removed)
            return state.SkipWithError("unregistration failed");
    }
}
BENCHMARK(ScriptRegistration)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
