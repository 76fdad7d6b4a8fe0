// Registrars racing on one contact set, alone and while their server sessions are killed and the server restarts.
#include "ContactRecord.h"
#include "LocationService.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

using velm::ContactRecord;
using velm::LocationService;
using Contacts = std::vector<ContactRecord>;

namespace {

const int THREADS = 16;
const int SETS = 4;
const auto CHURN = std::chrono::seconds(8);
const auto RESTART_AFTER = std::chrono::seconds(3);
const char* const TWO_ACTIVE = "SELECT csid FROM contact WHERE qvalue = '0.800000' GROUP BY csid HAVING count(*) > 1";

// A session of the test's own on the scratch server that reconnects after
// it was lost, for the killer and the sampler that run through the restart.
class Observer {
public:
    Observer(const std::string& port, const char* name)
        : m_conninfo("host=" + velmtest::server().host + " port=" + port +
                     " user=velm dbname=velm_template application_name=" + name) {}
    ~Observer() { PQfinish(m_conn); }
    // The number of rows, none when the server is away.
    int rows(const std::string& sql) {
        if (m_conn == nullptr || PQstatus(m_conn) != CONNECTION_OK) {
            PQfinish(m_conn);
            m_conn = PQconnectdb(m_conninfo.c_str());
        }
        PGresult* result = PQexec(m_conn, sql.c_str());
        int count = PQresultStatus(result) == PGRES_TUPLES_OK ? PQntuples(result) : 0;
        PQclear(result);
        return count;
    }

private:
    std::string m_conninfo;
    PGconn* m_conn = nullptr;
};

// One contact's fate as its registrar was told it.
struct Outcome {
    std::string address;
    bool registered = false, refreshed = false, unregistered = false;
};

using Form = velm::DatabaseResult (LocationService::*)(int, Contacts&, Contacts&, Contacts&, Contacts&);
bool step(LocationService& service, Form form, int key, const ContactRecord& contact) {
    Contacts contacts{contact}, added, deleted, changed;
    return (service.*form)(key, contacts, added, deleted, changed).okay();
}

} // namespace

// Sixteen registrars on four shared sets while their server sessions are
// killed and the server restarts: what each caller was told must be what the
// database holds, and a set never shows two active contacts.
TEST(RegistrationUnderFaults, KilledSessionsAndARestartLoseNothingAndNeverShowTwoActiveContacts) {
    velmtest::resetProperties();
    velmtest::ScratchServer scratch(true);
    std::vector<int> keys;
    velmtest::AdminConnection admin("velm_template", scratch.port());
    for (int set = 1; set <= SETS; ++set) {
        std::string sid = std::to_string(set);
        admin.exec("INSERT INTO subscriber (sid, auth_user_id) VALUES (" + sid + ", 'u" + sid + "')");
        keys.push_back(std::atoi(admin.value("SELECT create_public_address(" + sid + ", 'u" + sid + "', 'example.com')").c_str()));
    }
    std::atomic<bool> churning{true}, calm{false};
    std::atomic<int> kills{0}, samples{0}, twoActiveSeen{0}, worksAgain{0};
    std::vector<std::vector<Outcome>> outcomes(THREADS);
    std::vector<std::thread> threads;
    for (int id = 0; id < THREADS; ++id)
        threads.emplace_back([&, id] {
            const int key = keys[id % SETS];
            LocationService service;
            ASSERT_TRUE(service.connect(scratch.database().c_str(), "velm", "").okay());
            // Register, refresh and, every other round, unregister a contact of its own.
            for (int round = 0; round < 400 && churning; ++round) {
                Outcome o;
                o.address = "sip:r" + std::to_string(id) + "_" + std::to_string(round) + "@192.0.2.20";
                ContactRecord contact = velmtest::contact(o.address);
                o.registered = step(service, &LocationService::registerContacts, key, contact);
                contact.setCseq(2);
                o.refreshed = o.registered && step(service, &LocationService::updateContacts, key, contact);
                o.unregistered =
                    o.registered && round % 2 == 0 && step(service, &LocationService::unregisterContacts, key, contact);
                if (!o.registered) // a registrar whose server is away does not spin
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                outcomes[id].push_back(o);
            }
            while (!calm)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            ContactRecord last = velmtest::contact("sip:r" + std::to_string(id) + "_final@192.0.2.20");
            worksAgain += step(service, &LocationService::registerContacts, key, last) &&
                          step(service, &LocationService::unregisterContacts, key, last);
        });
    std::thread killer([&] {
        Observer observer(scratch.port(), "killer");
        for (; churning; std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            kills += observer.rows("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = "
                                   "'velm_template' AND application_name = '' AND backend_type = 'client backend' "
                                   "ORDER BY random() LIMIT 1");
    });
    std::thread sampler([&] {
        Observer observer(scratch.port(), "sampler");
        for (; churning; ++samples, std::this_thread::sleep_for(std::chrono::milliseconds(5)))
            twoActiveSeen += observer.rows(TWO_ACTIVE);
    });
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(RESTART_AFTER);
    scratch.restart();
    std::this_thread::sleep_until(start + CHURN);
    churning = false;
    killer.join();
    sampler.join();
    calm = true;
    for (auto& thread : threads)
        thread.join();

    EXPECT_GT(kills, 50);
    EXPECT_GT(samples, 100);
    EXPECT_EQ(0, twoActiveSeen);
    EXPECT_EQ(THREADS, worksAgain);
    velmtest::AdminConnection after("velm_template", scratch.port());
    EXPECT_TRUE(after.query(TWO_ACTIVE).empty());
    int acknowledged = 0, failed = 0;
    for (const auto& told : outcomes)
        for (const Outcome& o : told) {
            // A registration stands unless its removal was acknowledged; a
            // failed one, a refresh that failed (the CSeq stays 1) and a
            // removal that failed (the contact stays) change nothing.
            velmtest::Rows rows = after.query("SELECT cseq FROM contact WHERE address = '" + o.address + "'");
            acknowledged += o.registered;
            failed += !o.registered || !o.refreshed;
            if (o.registered && !o.unregistered) {
                EXPECT_EQ(std::vector<std::string>{o.refreshed ? "2" : "1"}, rows.empty() ? std::vector<std::string>{} : rows[0])
                    << o.address << " was lost or not refreshed as told";
            } else {
                EXPECT_TRUE(rows.empty()) << o.address << " was left behind";
            }
        }
    EXPECT_GT(acknowledged, 100);
    EXPECT_GT(failed, 0);
    std::printf("kills=%d samples=%d acknowledged=%d failed=%d\n", kills.load(), samples.load(), acknowledged, failed);
}

TEST(RegistrationConcurrency, EightRegistrarsOfOneSetLeaveEveryContactAndOneActive) {
    velmtest::resetProperties();
    velmtest::TestDatabase db;
    const int key = velmtest::provisionAddress(db, 1, "alice", "example.com");
    constexpr int threads = 8;
    std::atomic<int> ready{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> registrars;
    for (int t = 0; t < threads; ++t) {
        registrars.emplace_back([&, t] {
            velm::LocationService service;
            if (!service.connect(db.name().c_str(), "velm", "").okay()) {
                ++failures;
                return;
            }
            ++ready;
            while (ready.load() < threads)
                std::this_thread::yield();
            std::string uri = "sip:alice@192.0.2." + std::to_string(10 + t) + ":5060";
            for (int round = 0; round < 3; ++round) {
                std::vector<ContactRecord> contacts{velmtest::contact(uri, "1.0")}, added, deleted, changed;
                velm::DatabaseResult result =
                    round == 0 ? service.registerContacts(key, contacts, added, deleted, changed)
                               : service.updateContacts(key, contacts, added, deleted, changed);
                if (!result.okay()) {
                    ++failures;
                    ADD_FAILURE() << uri << " round " << round << ": " << result.getErrorMessage();
                }
            }
        });
    }
    for (auto& registrar : registrars)
        registrar.join();

    EXPECT_EQ(0, failures.load());
    auto stored = velmtest::storedQvalues(db, key);
    EXPECT_EQ(static_cast<size_t>(threads), stored.size());
    int active = 0;
    for (const auto& entry : stored)
        active += entry.second == "0.800000" ? 1 : 0;
    EXPECT_EQ(1, active);
}
