#include "AlarmCapture.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "QueryResultPtr.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "Trace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>

using velm::ContactRecord;
using velm::DatabaseResult;
using velm::LocationService;
using velmtest::contact;
using Stored = std::map<std::string, std::string>;
using Contacts = std::vector<ContactRecord>;

namespace {

const char* const A = "sip:alice@192.0.2.10:5060";
const char* const B = "sip:alice@192.0.2.11:5060";
const char* const C = "sip:alice@192.0.2.12:5060";

// Ends the service's server session just before the k-th statement that
// contains `trigger` (any statement when it is empty) is sent. With
// `allowReset` false the database is closed to new sessions as well, so the
// connection cannot be reset. Collects the LocationService log.
class KillBefore : public velm::TraceSink {
public:
    KillBefore(velmtest::TestDatabase& db, int pid, int k, std::string trigger = "", bool allowReset = true)
        : m_db(db), m_postgres("postgres"), m_pid(pid), m_k(k), m_trigger(std::move(trigger)),
          m_allowReset(allowReset) {
        velm::Trace::enable("DatabaseConnection", true);
        velm::Trace::setSink(this);
    }
    ~KillBefore() override {
        velm::Trace::setSink(nullptr);
        velm::Trace::enable("DatabaseConnection", false);
        if (!m_allowReset)
            m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS true");
    }
    void write(const char* channel, const char* text) override {
        std::string line(text);
        if (std::string(channel) == "LocationService")
            m_log.push_back(line);
        if (line.rfind("Executing query", 0) != 0 || line.find(m_trigger) == std::string::npos)
            return;
        if (++m_seen != m_k)
            return;
        if (!m_allowReset)
            m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS false");
        m_db.terminateBackend(m_pid);
    }
    bool killed() const { return m_seen >= m_k; }
    // The statements sent while armed (those of the failure ladder included).
    int statements() const { return m_seen; }
    const std::vector<std::string>& log() const { return m_log; }

private:
    velmtest::TestDatabase& m_db;
    velmtest::AdminConnection m_postgres;
    int m_pid;
    int m_k;
    std::string m_trigger;
    bool m_allowReset;
    int m_seen = 0;
    std::vector<std::string> m_log;
};

int backendPid(LocationService& service) {
    velm::QueryResultPtr pid;
    EXPECT_TRUE(service.m_exec->execute("SELECT pg_backend_pid()", pid).okay());
    return std::atoi(pid.getValue(0, 0));
}

// What a registration operation leaves in the set: address -> "qvalue cseq".
Stored snapshot(velmtest::TestDatabase& db, int key) {
    Stored stored;
    for (const auto& row : db.admin().query("SELECT address, qvalue, cseq FROM contact WHERE csid = (SELECT csid "
                                            "FROM public_address WHERE public_address_id = " +
                                            std::to_string(key) + ")"))
        stored[row[0]] = row[1] + " " + row[2];
    return stored;
}

int activeContacts(const Stored& stored) {
    int active = 0;
    for (const auto& entry : stored)
        active += entry.second.rfind("0.800000 ", 0) == 0;
    return active;
}

// A REGISTER that refreshes `uri`: the next CSeq.
ContactRecord refreshed(const std::string& uri, const std::string& qvalue = "") {
    ContactRecord record = contact(uri, qvalue);
    record.setCseq(2);
    return record;
}

ContactRecord wildcard() {
    ContactRecord record;
    record.setAddress("*");
    return record;
}

// One registration operation: the contacts stored before it (A already
// expired when `expiredA`), the call, how many statements it sends when
// nothing fails, and the set it leaves then.
struct Operation {
    const char* name;
    bool expiredA;
    Stored before;
    std::function<DatabaseResult(LocationService&, int, Contacts&)> call;
    int statements;
    Stored after;
};

// The forms with output vectors report what they changed; those must stay
// empty after a failure.
DatabaseResult stepwise(DatabaseResult (LocationService::*form)(int, Contacts&, Contacts&, Contacts&, Contacts&),
                        LocationService& service, int key, Contacts contacts, Contacts& reported) {
    Contacts added, deleted, changed;
    DatabaseResult result = (service.*form)(key, contacts, added, deleted, changed);
    for (Contacts* list : {&added, &deleted, &changed})
        reported.insert(reported.end(), list->begin(), list->end());
    return result;
}

DatabaseResult plain(DatabaseResult (LocationService::*form)(int, Contacts&), LocationService& service, int key,
                     Contacts contacts, bool autoCommit) {
    service.m_useAutoCommit = autoCommit;
    return (service.*form)(key, contacts);
}

using Register = DatabaseResult (LocationService::*)(int, Contacts&, Contacts&, Contacts&, Contacts&);
using Plain = DatabaseResult (LocationService::*)(int, Contacts&);
const Register registerSteps = &LocationService::registerContacts;
const Register updateSteps = &LocationService::updateContacts;
const Register unregisterSteps = &LocationService::unregisterContacts;
const Plain registerPlain = &LocationService::registerContacts;
const Plain updatePlain = &LocationService::updateContacts;
const Plain unregisterPlain = &LocationService::unregisterContacts;

const Stored activeA{{A, "0.800000 1"}};
const Stored activeAInactiveB{{A, "0.800000 1"}, {B, "0.000000 1"}};

using Call = std::function<DatabaseResult(LocationService&, int, Contacts&)>;
using Make = Contacts (*)();

// A call of a form with output vectors, and of a plain one; the contacts are
// made when the operation runs.
Call byStep(Register form, Make make) {
    return [form, make](LocationService& s, int key, Contacts& r) { return stepwise(form, s, key, make(), r); };
}
Call byPlain(Plain form, Make make, bool autoCommit) {
    return [=](LocationService& s, int key, Contacts&) { return plain(form, s, key, make(), autoCommit); };
}

Contacts inactiveBC() { return {contact(B, "0.000000"), contact(C, "0.000000")}; }
Contacts refreshedAB() { return {refreshed(A, "0.800000"), refreshed(B, "0.000000")}; }
Contacts bothAB() { return {contact(A), contact(B)}; }

const std::vector<Operation>& operations() {
    const Stored afterInactiveBC{{A, "0.800000 1"}, {B, "0.000000 1"}, {C, "0.000000 1"}};
    const Stored afterRefreshAB{{A, "0.800000 2"}, {B, "0.000000 2"}};
    static const std::vector<Operation> table{
        {"RegisterDemotingTheActiveContact", false, activeA, byStep(registerSteps, [] { return Contacts{contact(B)}; }),
         8, {{A, "0.000000 1"}, {B, "0.800000 1"}}},
        {"RegisterInactive", false, activeA, byStep(registerSteps, [] { return Contacts{contact(B, "0")}; }), 7,
         activeAInactiveB},
        {"RegisterScript", false, activeA, byPlain(registerPlain, inactiveBC, false), 1, afterInactiveBC},
        {"RegisterAutoCommit", false, activeA, byPlain(registerPlain, inactiveBC, true), 2, afterInactiveBC},
        {"Refresh", false, activeAInactiveB, byStep(updateSteps, [] { return Contacts{refreshed(B)}; }), 7,
         {{A, "0.800000 1"}, {B, "0.000000 2"}}},
        {"RefreshScript", false, activeAInactiveB, byPlain(updatePlain, refreshedAB, false), 1, afterRefreshAB},
        {"RefreshAutoCommit", false, activeAInactiveB, byPlain(updatePlain, refreshedAB, true), 2, afterRefreshAB},
        {"UpdateOneContact", false, activeAInactiveB,
         [](LocationService& s, int key, Contacts&) {
             ContactRecord b = refreshed(B, "0.000000");
             return s.updateContact(key, b);
         },
         1, {{A, "0.800000 1"}, {B, "0.000000 2"}}},
        {"UnregisterPromotingTheOneLeft", false, activeAInactiveB,
         byStep(unregisterSteps, [] { return Contacts{contact(A)}; }), 7, {{B, "0.800000 1"}}},
        {"UnregisterWildcard", false, activeAInactiveB, byStep(unregisterSteps, [] { return Contacts{wildcard()}; }),
         6, {}},
        {"UnregisterScript", false, activeAInactiveB, byPlain(unregisterPlain, bothAB, false), 1, {}},
        {"UnregisterAutoCommit", false, activeAInactiveB, byPlain(unregisterPlain, bothAB, true), 2, {}},
        {"ExpireAll", true, activeAInactiveB,
         [](LocationService& s, int, Contacts&) { return s.removeExpiredContacts(); }, 1, {{B, "0.000000 1"}}},
        {"ExpireOnePromotingTheOneLeft", true, activeAInactiveB,
         [](LocationService& s, int, Contacts& r) {
             Contacts added, deleted, changed;
             DatabaseResult result = s.removeExpiredContacts(added, deleted, changed);
             r = deleted;
             r.insert(r.end(), changed.begin(), changed.end());
             return result;
         },
         7, {{B, "0.800000 1"}}},
    };
    return table;
}

// Provisions the set of `operation` (A expired for the expiry operations)
// and connects a service to it.
class FaultRun {
public:
    explicit FaultRun(const Operation& operation) {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        int csid = std::atoi(db.admin().value("SELECT csid FROM public_address WHERE public_address_id = " +
                                              std::to_string(key)).c_str());
        velmtest::Provisioning provisioning(db.admin());
        for (const auto& entry : operation.before) {
            long expires = time(nullptr) + (operation.expiredA && entry.first == A ? -60 : 3600);
            provisioning.contact(csid, entry.first, entry.second.substr(0, entry.second.find(' ')), expires);
        }
        EXPECT_EQ(operation.before, snapshot(db, key));
        EXPECT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    }

    velmtest::TestDatabase db;
    int key = 0;
    LocationService service;
};

class RegistrationOperation : public testing::TestWithParam<size_t> {};

TEST_P(RegistrationOperation, SendsTheCountedStatementsAndLeavesTheSetAsDescribed) {
    const Operation& operation = operations()[GetParam()];
    FaultRun run(operation);
    Contacts reported;
    DatabaseResult result;
    int statements = 0;
    {
        KillBefore never(run.db, backendPid(run.service), 1000);
        result = operation.call(run.service, run.key, reported);
        statements = never.statements();
    }
    EXPECT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(operation.statements, statements);
    EXPECT_EQ(operation.after, snapshot(run.db, run.key));
}

INSTANTIATE_TEST_SUITE_P(Operations, RegistrationOperation, testing::Range<size_t>(0, operations().size()),
                         [](const testing::TestParamInfo<size_t>& info) { return operations()[info.param].name; });

// The session is lost just before statement k of one operation, and the
// connection may reset. Whatever the operation then reports must be what
// the database holds: on success the set as described, on failure the set
// as it was, and never two active contacts.
struct KillPoint {
    size_t operation;
    int k;
};

void PrintTo(const KillPoint& point, std::ostream* out) {
    *out << operations()[point.operation].name << " before statement " << point.k;
}

std::vector<KillPoint> killPoints() {
    std::vector<KillPoint> points;
    for (size_t operation = 0; operation < operations().size(); ++operation)
        for (int k = 1; k <= operations()[operation].statements; ++k)
            points.push_back({operation, k});
    return points;
}

class LostSession : public testing::TestWithParam<KillPoint> {};

TEST_P(LostSession, TheReportedResultIsWhatWasCommitted) {
    const Operation& operation = operations()[GetParam().operation];
    FaultRun run(operation);
    Contacts reported;
    DatabaseResult result;
    {
        KillBefore kill(run.db, backendPid(run.service), GetParam().k);
        result = operation.call(run.service, run.key, reported);
        ASSERT_TRUE(kill.killed());
    }
    Stored stored = snapshot(run.db, run.key);
    if (result.okay()) {
        EXPECT_EQ(operation.after, stored);
    } else {
        EXPECT_EQ(operation.before, stored) << result.getErrorMessage();
        EXPECT_TRUE(reported.empty());
    }
    EXPECT_LE(activeContacts(stored), 1);
    // The service works again afterwards.
    velm::QueryResultPtr rows;
    EXPECT_TRUE(run.service.m_exec->execute("SELECT 1", rows).okay());
}

INSTANTIATE_TEST_SUITE_P(Operations, LostSession, testing::ValuesIn(killPoints()),
                         [](const testing::TestParamInfo<KillPoint>& info) {
                             return std::string(operations()[info.param.operation].name) + "_before" +
                                    std::to_string(info.param.k);
                         });

} // namespace

TEST(RegistrationFault, ALostConnectionAfterTheSetIsLockedTakesTheRollbackLadder) {
    velmtest::resetProperties();
    velmtest::TestDatabase db;
    int key = velmtest::provisionAddress(db, 1, "alice", "example.com");
    LocationService service;
    ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    Contacts first{contact(A)}, added, deleted, changed;
    ASSERT_TRUE(service.registerContacts(key, first, added, deleted, changed).okay());
    added.clear();

    velmtest::AlarmCapture alarms;
    DatabaseResult result;
    std::vector<std::string> log;
    {
        // B demotes A first, then the session ends as B's row is inserted.
        KillBefore kill(db, backendPid(service), 1, "INSERT INTO contact", false);
        Contacts second{contact(B)};
        result = service.registerContacts(key, second, added, deleted, changed);
        ASSERT_TRUE(kill.killed());
        log = kill.log();
    }

    EXPECT_TRUE(result.queryError()) << result.getErrorMessage();
    EXPECT_TRUE(added.empty());
    EXPECT_TRUE(changed.empty());
    auto texts = alarms.texts("zuVELMProxyDBAccessFailed");
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ("database failure - registerContacts_12. " + result.getErrorMessage(), texts[0]);
    EXPECT_EQ(0u, texts[1].rfind("database failure - registerContacts_14. ", 0)) << texts[1];
    ASSERT_EQ(2u, log.size());
    EXPECT_EQ("registerContacts failed rollback: " + result.getErrorMessage(), log[0]);
    EXPECT_EQ(0u, log[1].rfind("registerContacts second rollback failed : ", 0)) << log[1];
    // The server rolled the demotion back with the session.
    EXPECT_EQ((Stored{{A, "0.800000"}}), velmtest::storedQvalues(db, key));
}
