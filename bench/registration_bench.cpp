// Contact registration against a real server, each thread with a subscriber
// of its own: a REGISTER of a new contact (transaction, set lock, lookup,
// demotion, insert, read-back, commit) followed by its removal, so that every
// iteration leaves the set as it found it; the refresh of a contact; and an
// expiry pass that finds nothing to remove. See BenchSupport.h for the
// environment.
#include "BenchSupport.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <atomic>
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
// benchmark (one per thread and repetition, in any process) provisions a new
// one.
bool provision(Subscriber& subscriber, const std::string& name) {
    static std::atomic<int> runs{0};
    const std::string user = name + std::to_string(getpid()) + "_" + std::to_string(++runs);
    subscriber.service = std::make_unique<velm::LocationService>();
    if (!velmbench::connect(*subscriber.service))
        return false;
    velm::DatabaseCommandExecutor& exec = *subscriber.service->m_exec;
    // Threads that start together may pick the same next sid: try again.
    std::string sid = "(SELECT coalesce(max(sid), 0) + 1 FROM subscriber)";
    bool inserted = false;
    for (int attempt = 0; attempt < 50 && !inserted; ++attempt)
        inserted = exec.execute("INSERT INTO subscriber (sid, auth_user_id) VALUES (" + sid + ", '" + user + "')").okay();
    velm::QueryResultPtr rows;
    if (!inserted || !exec.execute("SELECT create_public_address((SELECT sid FROM subscriber WHERE auth_user_id = '" +
                                       user + "'), '" + user + "', 'bench.velm.test')",
                                   rows)
                          .okay())
        return false;
    subscriber.key = std::atoi(rows.getValue(0, 0));
    return true;
}

void mark(Subscriber& subscriber) {
    velmbench::markIteration(*subscriber.service->m_exec);
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

void StepByStepRegistrationAndUnregistration(benchmark::State& state) {
    Subscriber subscriber;
    if (!provision(subscriber, "register") ||
        !registerOne(subscriber, contact("sip:desk@192.0.2.1:5060", "")))
        return state.SkipWithError("cannot provision a subscriber");
    ContactRecord mobile = contact("sip:mobile@192.0.2.2:5060", "1.0");
    for (auto _ : state) {
        mark(subscriber);
        if (!registerOne(subscriber, mobile))
            return state.SkipWithError("registration failed");
        if (!unregisterOne(subscriber, mobile))
            return state.SkipWithError("unregistration failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StepByStepRegistrationAndUnregistration)->Apply(velmbench::threads);

void StepByStepRefresh(benchmark::State& state) {
    Subscriber subscriber;
    ContactRecord desk = contact("sip:desk@192.0.2.1:5060", "");
    if (!provision(subscriber, "refresh") || !registerOne(subscriber, desk))
        return state.SkipWithError("cannot provision a subscriber");
    long cseq = 1;
    for (auto _ : state) {
        mark(subscriber);
        desk.setCseq(++cseq);
        std::vector<ContactRecord> contacts{desk}, added, deleted, changed;
        if (!subscriber.service->updateContacts(subscriber.key, contacts, added, deleted, changed).okay())
            return state.SkipWithError("refresh failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StepByStepRefresh)->Apply(velmbench::threads);

void StepByStepExpiryWithNothingExpired(benchmark::State& state) {
    Subscriber subscriber;
    if (!provision(subscriber, "expiry"))
        return state.SkipWithError("cannot provision a subscriber");
    for (auto _ : state) {
        mark(subscriber);
        std::vector<ContactRecord> added, deleted, changed;
        if (!subscriber.service->removeExpiredContacts(added, deleted, changed).okay() || !deleted.empty())
            return state.SkipWithError("expiry failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StepByStepExpiryWithNothingExpired)->Apply(velmbench::threads);

void ScriptRegistrationAndUnregistration(benchmark::State& state) {
    Subscriber subscriber;
    if (!provision(subscriber, "script"))
        return state.SkipWithError("cannot provision a subscriber");
    std::vector<ContactRecord> contacts{contact("sip:desk@192.0.2.1:5060", "0.8")};
    for (auto _ : state) {
        mark(subscriber);
        if (!subscriber.service->registerContacts(subscriber.key, contacts).okay())
            return state.SkipWithError("registration failed");
        if (!subscriber.service->unregisterContacts(subscriber.key, contacts).okay())
            return state.SkipWithError("unregistration failed");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ScriptRegistrationAndUnregistration)->Apply(velmbench::threads);

} // namespace

BENCHMARK_MAIN();
