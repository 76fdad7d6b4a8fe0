// Registration, refresh, unregistration and expiry in every form: what each leaves and refuses, and what lost sessions and racing registrars leave.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "PrefixMaps.h"
#include "Provisioning.h"
#include "QueryResultPtr.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <stdexcept>
#include <thread>
#include <unistd.h>

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
// A permanent contact and one without a Contact header, as provisioning stores them.
const char* const DESK = "sip:desk@192.0.2.20";
const char* const BARE = "sip:bare@192.0.2.21";

// Collects the statements sent and the LocationService log; ends the server session just before the k-th
// statement containing `trigger`, and with `allowReset` false keeps the connection from being reset.
struct Session : velmtest::TraceCapture {
    Session(velmtest::TestDatabase& db, int pid, int k = 0, std::string trigger = "", bool allowReset = true)
        : TraceCapture({"DatabaseConnection"}), db(db), pid(pid), k(k), trigger(std::move(trigger)),
          allowReset(allowReset) {}
    ~Session() override { allow(true); }
    void allow(bool connections) {
        if (!allowReset)
            postgres.exec("ALTER DATABASE " + db.name() + " ALLOW_CONNECTIONS " + (connections ? "true" : "false"));
    }
    void write(const char* channel, const char* text) override {
        TraceCapture::write(channel, text);
        const std::string line(text), prefix = "Executing query: \n";
        if (line.rfind(prefix, 0) != 0)
            return;
        statements.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 1));
        if (line.find(trigger) != std::string::npos && ++seen == k) {
            allow(false);
            db.terminateBackend(pid);
        }
    }
    bool killed() const { return k > 0 && seen >= k; }

    velmtest::TestDatabase& db;
    velmtest::AdminConnection postgres{"postgres"};
    int pid, k, seen = 0;
    std::string trigger;
    bool allowReset;
    std::vector<std::string> statements;
};

struct Outputs { Contacts added, deleted, changed; };

// "+" added, "-" deleted, "~" changed, with the qvalue and CSeq reported.
std::string reported(const Outputs& out) {
    const std::map<std::string, std::string> letters{{A, "A"}, {B, "B"}, {C, "C"}, {DESK, "DESK"}, {BARE, "BARE"}};
    std::string text;
    const std::pair<char, const Contacts*> lists[] = {{'+', &out.added}, {'-', &out.deleted}, {'~', &out.changed}};
    for (const auto& list : lists)
        for (const ContactRecord& record : *list.second)
            text += std::string(text.empty() ? "" : " ") + list.first + letters.at(record.address()) + "=" + record.qvalue() +
                    "/" + std::to_string(record.cseq());
    return text;
}

ContactRecord refreshed(const std::string& uri, const std::string& qvalue = "") {
    ContactRecord record = contact(uri, qvalue);
    return record.setCseq(2), record;
}
ContactRecord wildcard(const std::string& header = "") {
    ContactRecord record = contact("*");
    return record.setContactHeader(header), record;
}

// Step by step with output vectors, one transaction script, or auto-commit statements asked for through
// the short or the step-by-step form.
enum Form { Steps, Script, AutoCommit, AutoCommitSteps };
enum Op { Register, Refresh, Unregister };
using Call = std::function<DatabaseResult(LocationService&, int, Outputs&)>;
using Make = std::function<Contacts()>;
// A switch rather than tables of member pointers: gcc's bounds check misreads those.
DatabaseResult run(LocationService& service, Op op, int key, Contacts& contacts) {
    switch (op) {
    case Register: return service.registerContacts(key, contacts);
    case Refresh: return service.updateContacts(key, contacts);
    default: return service.unregisterContacts(key, contacts);
    }
}
DatabaseResult run(LocationService& service, Op op, int key, Contacts& contacts, Outputs& out) {
    switch (op) {
    case Register: return service.registerContacts(key, contacts, out.added, out.deleted, out.changed);
    case Refresh: return service.updateContacts(key, contacts, out.added, out.deleted, out.changed);
    default: return service.unregisterContacts(key, contacts, out.added, out.deleted, out.changed);
    }
}

Call call(Op op, Form form, Make make) {
    return [=](LocationService& service, int key, Outputs& out) {
        Contacts contacts = make();
        service.m_useAutoCommit = form == AutoCommit || form == AutoCommitSteps;
        return form == Script || form == AutoCommit ? run(service, op, key, contacts)
                                                    : run(service, op, key, contacts, out);
    };
}

Call expireOne = [](LocationService& service, int, Outputs& out) {
    return service.removeExpiredContacts(out.added, out.deleted, out.changed);
};
Call expireAll = [](LocationService& service, int, Outputs&) { return service.removeExpiredContacts(); };
// B without a qvalue, under the given treatment of a missing one.
Make untreated(const char* treatment) {
    return [=] {
        velm::AppProperties::set("Registrar", "QValueNotPresentRegisterTreatment", treatment);
        return Contacts{contact(B)};
    };
}

// One subscriber's address and contact set, and a service connected to its database.
class Registration : public testing::Test {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        csid = db.admin().value("SELECT csid FROM public_address WHERE public_address_id = " + std::to_string(key));
        ASSERT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    }
    void provision(const Stored& before, const std::vector<std::string>& expired) {
        for (const auto& entry : before) {
            const std::string& uri = entry.first;
            bool gone = std::find(expired.begin(), expired.end(), uri) != expired.end();
            db.admin().exec("INSERT INTO contact (csid, address, qvalue, cseq, expires, permanent, contact_header) "
                            "VALUES (" + csid + ", '" + uri + "', '" + entry.second.substr(0, entry.second.find(' ')) +
                            "', 1, " + std::to_string(time(nullptr) + (gone ? -60 : 3600)) + ", " +
                            (uri == DESK ? "true" : "false") + ", '" + (uri == BARE ? "" : "<" + uri + ">") + "')");
        }
        ASSERT_EQ(before, snapshot());
    }
    // address -> "qvalue cseq"
    Stored snapshot() {
        Stored stored;
        for (const auto& row : db.admin().query("SELECT address, qvalue, cseq FROM contact WHERE csid = " + csid))
            stored[row[0]] = row[1] + " " + row[2];
        return stored;
    }
    int backendPid() {
        velm::QueryResultPtr pid;
        EXPECT_TRUE(service.m_exec->execute("SELECT pg_backend_pid()", pid).okay());
        return std::atoi(pid.getValue(0, 0));
    }

    velmtest::TestDatabase db;
    velmtest::AlarmCapture alarms;
    LocationService service;
    int key = 0;
    std::string csid;
};

// An operation that succeeds: the set before it, the call, the statements it sends, the set it leaves, what it
// reports, and the last statement's text ("CSID" for the set's sub-select) where it is checked.
struct Operation {
    const char* name;
    Stored before;
    std::vector<std::string> expired;
    Call call;
    int statements;
    Stored after;
    const char* reported;
    std::string lastStatement = "";
};

const Stored activeA{{A, "0.800000 1"}}, activeB{{B, "0.800000 1"}};
const Stored demotedA{{A, "0.000000 1"}, {B, "0.800000 1"}}, activeAInactiveB{{A, "0.800000 1"}, {B, "0.000000 1"}};
const Stored inactiveBC{{B, "0.000000 1"}, {C, "0.000000 1"}};
const Stored allThree{{A, "0.800000 1"}, {B, "0.000000 1"}, {C, "0.000000 1"}};
const Stored refreshedB{{A, "0.800000 1"}, {B, "0.000000 2"}}, refreshedAB{{A, "0.800000 2"}, {B, "0.000000 2"}};

Contacts only(ContactRecord record) { return {record}; }
Make one(const char* uri, const char* qvalue = "") { return [=] { return only(contact(uri, qvalue)); }; }

const std::vector<Operation>& operations() {
    const Make addBC = [] { return Contacts{contact(B, "0.000000"), contact(C, "0.000000")}; };
    const Make refreshAB = [] { return Contacts{refreshed(A, "0.800000"), refreshed(B, "0.000000")}; };
    const Make bothAB = [] { return Contacts{contact(A), contact(B)}; };
    const Make displayName = [] {
        ContactRecord same = contact(A);
        return same.setContactHeader("\"Alice\" <sip:alice@192.0.2.10:5060>;expires=0"), only(same);
    };
    const Make fixedB = [] { ContactRecord b = contact(B, "0.5"); return b.setExpires(2000000000), only(b); };
    const Call updateOne = [](LocationService& s, int key, Outputs&) {
        ContactRecord b = refreshed(B, "0.000000");
        return b.setPathVector("<sip:edge.example.com;lr>"), s.updateContact(key, b);
    };
    const auto remove = [](const char* uri) {
        return "DELETE FROM contact WHERE address = '" + std::string(uri) + "' AND csid = CSID; ";
    };
    const std::string insertB = "INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,"
                                "contact_header,call_id,cseq, path_vector)  VALUES('sip:alice@192.0.2.11:5060',";
    const std::string valuesB = ", '0.5',2000000000,'f','','<sip:alice@192.0.2.11:5060>',"
                                "'call-sip:alice@192.0.2.11:5060','1','')";
    static const std::vector<Operation> table{
        {"RegisterFirst", {}, {}, call(Register, Steps, one(A, "1.0")), 7, activeA, "+A=0.800000/1"},
        {"RegisterDemotingTheActiveContact", activeA, {}, call(Register, Steps, one(B, "0.5")), 8, demotedA,
         "+B=0.800000/1 ~A=0.000000/1"},
        {"RegisterInactive", activeA, {}, call(Register, Steps, one(B, "0")), 7, activeAInactiveB, "+B=0.000000/1"},
        {"RegisterWithoutQvalueTreatedInactive", activeA, {}, call(Register, Steps, untreated("inactive")),
         7, activeAInactiveB, "+B=0.000000/1"},
        {"RegisterWithoutQvalueTreatmentIsCaseSensitive", activeA, {},
         call(Register, Steps, untreated("Inactive")), 8, demotedA, "+B=0.800000/1 ~A=0.000000/1"},
        {"RegisterScriptStoresTheQvalueAsGiven", activeA, {}, call(Register, Script, fixedB), 1,
         {{A, "0.800000 1"}, {B, "0.5 1"}}, "",
         "BEGIN TRANSACTION; " + insertB + "CSID" + valuesB + "; COMMIT TRANSACTION;"},
        {"RegisterAutoCommit", activeA, {}, call(Register, AutoCommit, addBC), 2, allThree, ""},
        {"RegisterAutoCommitBySteps", activeA, {}, call(Register, AutoCommitSteps, addBC), 2, allThree, ""},
        {"Refresh", activeAInactiveB, {}, call(Refresh, Steps, [] { return only(refreshed(B, "1.0")); }), 7,
         refreshedB, "~B=0.000000/2"},
        {"RefreshScript", activeAInactiveB, {}, call(Refresh, Script, refreshAB), 1, refreshedAB, ""},
        {"RefreshAutoCommit", activeAInactiveB, {}, call(Refresh, AutoCommit, refreshAB), 2, refreshedAB, ""},
        {"RefreshAutoCommitBySteps", activeAInactiveB, {}, call(Refresh, AutoCommitSteps, refreshAB), 2, refreshedAB,
         ""},
        {"UpdateOneContact", activeAInactiveB, {}, updateOne, 1, refreshedB, ""},
        {"UnregisterPromotingTheOneLeft", activeAInactiveB, {}, call(Unregister, Steps, one(A)), 7, activeB,
         "-A=0.800000/1 ~B=0.800000/1"},
        {"UnregisterLeavingTwoInactive", allThree, {}, call(Unregister, Steps, one(A)), 6, inactiveBC, "-A=0.800000/1"},
        {"UnregisterByHeaderWithDisplayName", activeA, {}, call(Unregister, Steps, displayName), 6, {},
         "-A=0.800000/1"},
        {"UnregisterWildcard", activeAInactiveB, {}, call(Unregister, Steps, [] { return only(wildcard()); }), 6, {},
         "-A=0.800000/1 -B=0.000000/1"},
        {"UnregisterWildcardSparesPermanentAndHeaderless",
         {{A, "0.800000 1"}, {DESK, "0.000000 1"}, {BARE, "0.000000 1"}}, {},
         call(Unregister, Steps, [] { return only(wildcard("*")); }), 6,
         {{DESK, "0.000000 1"}, {BARE, "0.000000 1"}}, "-A=0.800000/1 -BARE=0.000000/1"},
        {"UnregisterScript", activeAInactiveB, {}, call(Unregister, Script, bothAB), 1, {}, "",
         "BEGIN TRANSACTION; " + remove(A) + remove(B) + "COMMIT TRANSACTION;"},
        {"UnregisterAutoCommit", activeAInactiveB, {}, call(Unregister, AutoCommit, bothAB), 2, {}, ""},
        {"UnregisterAutoCommitByHeader", activeAInactiveB, {},
         call(Unregister, AutoCommitSteps, [] { return only(wildcard("<sip:alice@192.0.2.11:5060>")); }), 1, activeA,
         "", "DELETE FROM contact WHERE contact_header = '<sip:alice@192.0.2.11:5060>' AND csid = CSID"},
        {"ExpireAllSparingPermanent", {{A, "0.800000 1"}, {B, "0.000000 1"}, {DESK, "0.000000 1"}}, {A, DESK},
         expireAll, 1, {{B, "0.000000 1"}, {DESK, "0.000000 1"}}, ""},
        {"ExpireOnePromotingTheOneLeft", activeAInactiveB, {A}, expireOne, 7, activeB, "-A=0.800000/1 ~B=0.800000/1"},
        {"ExpireOneOfTwoLeavingTwoInactive", allThree, {A, C}, expireOne, 6, inactiveBC, "-A=0.800000/1"},
    };
    return table;
}

// Refused as a bad parameter with the message or, where an alarm is given, as a failed query raising it.
struct Refusal { const char* name; Stored before; Call call; const char *message, *alarm = ""; };

Call filled(Op op, Outputs prefilled) {
    return [=](LocationService& service, int key, Outputs& out) {
        return out = prefilled, call(op, Steps, one(A))(service, key, out);
    };
}

const std::vector<Refusal>& refusals() {
    static const std::vector<Refusal> table{
        {"QvalueThatIsNoNumber", {}, call(Register, Steps, one(A, "high")), "invalid qvalue 'high'"},
        {"RegisterIntoFilledOutputs", {}, filled(Register, {{contact(B)}, {}, {contact(C)}}),
         "addedContacts not empty"},
        {"UnregisterIntoFilledOutputs", activeA, filled(Unregister, {{}, {}, {contact(C)}}),
         "changedContacts not empty"},
        {"WildcardMixedWithAContact", activeA, call(Unregister, Steps, [] { return Contacts{wildcard(), contact(A)}; }),
         "mixed contact headers"},
        {"UnregisterAnUnknownContact", activeAInactiveB,
         call(Unregister, Steps, [] { return Contacts{contact(B), contact(C)}; }),
         "unregistering contact not registered"},
        {"UnregisterFromAnEmptySet", {}, call(Unregister, Steps, one(A)), "unregisteringContacts: no contacts"},
        {"RefreshAnUnknownContact", activeA, call(Refresh, Steps, one(B)), "re-reg address not found"},
        {"RefreshAnEmptySet", {}, call(Refresh, Steps, one(A)), "ExistingContacts empty"},
        {"ScriptForAnUnknownSet", {},
         [](LocationService& s, int key, Outputs& out) { return call(Register, Script, one(A))(s, key + 100, out); },
         "", "database failure - registerContacts_2. "},
        // The ".nextval" syntax of older databases.
        {"ContactIdFromASequence", {}, [](LocationService& s, int, Outputs&) { std::string id; return s.getContactId(id); },
         "", "database failure - getContactId. "},
    };
    return table;
}

class RegistrationRefusal : public Registration, public testing::WithParamInterface<size_t> {};

TEST_P(RegistrationRefusal, ChangesNothing) {
    const Refusal& refusal = refusals()[GetParam()];
    provision(refusal.before, {});
    Outputs out;
    DatabaseResult result = refusal.call(service, key, out);
    const bool failed = *refusal.alarm != '\0';
    EXPECT_EQ(failed ? DatabaseResult::QUERY_ERROR : DatabaseResult::BADPARAM, result.m_status)
        << result.getErrorMessage();
    if (!failed) {
        EXPECT_EQ(refusal.message, result.getErrorMessage());
    }
    EXPECT_EQ(refusal.before, snapshot());
    using Texts = std::vector<std::string>;
    EXPECT_EQ(failed ? Texts{refusal.alarm + result.getErrorMessage()} : Texts{},
              alarms.texts("zuVELMProxyDBAccessFailed"));
    // A failed script was ended: the connection takes the next one.
    EXPECT_TRUE(call(Register, Script, one(C, "0"))(service, key, out).okay());
}

INSTANTIATE_TEST_SUITE_P(Cases, RegistrationRefusal, testing::Range<size_t>(0, refusals().size()),
                         [](const testing::TestParamInfo<size_t>& info) { return refusals()[info.param].name; });

// Each operation run whole (k = 0) and with its session lost just before statement k: what it reports is what the
// database holds, the set as described or, on failure, as it was with nothing reported; never two active contacts.
using Run = std::pair<size_t, int>; // operation, k

std::vector<Run> runs() {
    std::vector<Run> runs;
    for (size_t operation = 0; operation < operations().size(); ++operation)
        for (int k = 0; k <= operations()[operation].statements; ++k)
            runs.push_back({operation, k});
    return runs;
}

class RegistrationForms : public Registration, public testing::WithParamInterface<Run> {};

TEST_P(RegistrationForms, LeaveAndReportWhatWasCommitted) {
    const Operation& operation = operations()[GetParam().first];
    const int k = GetParam().second;
    provision(operation.before, operation.expired);
    Outputs out;
    Session session(db, backendPid(), k);
    DatabaseResult result = operation.call(service, key, out);
    ASSERT_EQ(k > 0, session.killed());
    Stored stored = snapshot();
    EXPECT_LE(std::count_if(stored.begin(), stored.end(), [](const auto& e) { return e.second[2] == '8'; }), 1);
    if (k > 0) {
        EXPECT_EQ(result.okay() ? operation.after : operation.before, stored) << result.getErrorMessage();
        EXPECT_TRUE(result.okay() || reported(out).empty()) << reported(out);
        EXPECT_GT(backendPid(), 0) << "the service works again";
        return;
    }
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(operation.statements, static_cast<int>(session.statements.size()));
    EXPECT_EQ(operation.after, stored);
    EXPECT_EQ(operation.reported, reported(out));
    for (const ContactRecord& added : out.added)
        EXPECT_EQ(db.admin().value("SELECT contact_id FROM contact WHERE address = '" + added.address() + "'"),
                  std::to_string(added.contactId()));
    std::string sent = session.statements.back(), select = "(SELECT csid FROM public_address where "
                                                           "public_address_id = " + std::to_string(key) + ")";
    for (size_t at; (at = sent.find(select)) != std::string::npos;)
        sent.replace(at, select.size(), "CSID");
    EXPECT_TRUE(operation.lastStatement.empty() || operation.lastStatement == sent) << sent;
    EXPECT_TRUE(alarms.alarms().empty());
}

INSTANTIATE_TEST_SUITE_P(Operations, RegistrationForms, testing::ValuesIn(runs()),
                         [](const testing::TestParamInfo<Run>& info) {
                             std::string name = operations()[info.param.first].name;
                             return info.param.second ? name + "_before" + std::to_string(info.param.second) : name;
                         });

const int THREADS = 16, SETS = 4;
const auto CHURN = std::chrono::seconds(8), FAULT_AFTER = std::chrono::seconds(3);
const char* const TWO_ACTIVE = "SELECT csid FROM contact WHERE qvalue = '0.800000' GROUP BY csid HAVING count(*) > 1";

// A session of the test's own at `location` (as the library takes it), opened again after it is lost in a restart or
// a failover.
struct Observer {
    Observer(const std::string& location, const char* name) {
        const char* const keywords[] = {"dbname", "user", "application_name", nullptr};
        const char* const values[] = {location.c_str(), "velm", name, nullptr};
        conn = PQconnectdbParams(keywords, values, 1);
    }
    ~Observer() { PQfinish(conn); }
    // The number of rows, none while the server is away.
    int rows(const std::string& sql) {
        if (PQstatus(conn) != CONNECTION_OK)
            PQreset(conn);
        PGresult* result = PQexec(conn, sql.c_str());
        int count = PQresultStatus(result) == PGRES_TUPLES_OK ? PQntuples(result) : 0;
        PQclear(result);
        return count;
    }
    PGconn* conn;
};

// One contact's fate as its registrar was told it; `removing` when its unregistration was tried.
struct Outcome { std::string address; bool registered = false, refreshed = false, removing = false, unregistered = false; };

// Sixteen registrars on four shared sets of `database` register, refresh and, every other round, unregister contacts
// of their own through `location` while `fault` runs (until `churning` ends), then once more; a sampler counts sets
// with two active contacts meanwhile. The server on `afterPort` then holds what each was told: exactly when a failed
// step changes nothing, else (a COMMIT whose reply was lost with its primary) as far as steps were acknowledged.
void churn(const std::string& database, const std::string& port, const std::string& afterPort,
           const std::string& location, const std::function<void(const std::atomic<bool>&)>& fault, bool exactly) {
    velmtest::AdminConnection admin(database, port);
    velmtest::Provisioning provisioning(admin);
    for (int set = 1; set <= SETS; ++set) { // an address's key is its set's number
        provisioning.subscriber(set);
        provisioning.contactSet(set, set);
        provisioning.publicAddress(set, "u" + std::to_string(set), "example.com", set, true);
    }
    std::atomic<bool> churning{true}, calm{false};
    std::atomic<int> samples{0}, twoActiveSeen{0}, worksAgain{0};
    std::vector<std::vector<Outcome>> outcomes(THREADS);
    std::vector<std::thread> threads;
    for (int id = 0; id < THREADS; ++id)
        threads.emplace_back([&, id] {
            const int key = id % SETS + 1;
            LocationService service;
            ASSERT_TRUE(service.connect(location.c_str(), "velm", "").okay());
            auto step = [&](Op op, const ContactRecord& contact) {
                Outputs out;
                return call(op, Steps, [contact] { return only(contact); })(service, key, out).okay();
            };
            for (int round = 0; round < 400 && churning; ++round) {
                Outcome o;
                o.address = "sip:r" + std::to_string(id) + "_" + std::to_string(round) + "@192.0.2.20";
                ContactRecord contact = velmtest::contact(o.address);
                o.registered = step(Register, contact);
                contact.setCseq(2);
                o.refreshed = o.registered && step(Refresh, contact);
                o.removing = o.registered && round % 2 == 0;
                o.unregistered = o.removing && step(Unregister, contact);
                if (!o.registered) // a registrar whose server is away does not spin
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
                outcomes[id].push_back(o);
            }
            while (!calm)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            ContactRecord last = velmtest::contact("sip:r" + std::to_string(id) + "_final@192.0.2.20");
            worksAgain += step(Register, last) && step(Unregister, last);
        });
    std::thread faults([&] { fault(churning); });
    std::thread sampler([&] {
        Observer observer{location, "sampler"};
        for (; churning; ++samples, std::this_thread::sleep_for(std::chrono::milliseconds(5)))
            twoActiveSeen += observer.rows(TWO_ACTIVE);
    });
    std::this_thread::sleep_for(CHURN);
    churning = false;
    faults.join();
    sampler.join();
    calm = true;
    for (auto& thread : threads)
        thread.join();

    EXPECT_GT(samples, 100);
    EXPECT_EQ(0, twoActiveSeen);
    EXPECT_EQ(THREADS, worksAgain);
    velmtest::AdminConnection after(database, afterPort);
    EXPECT_TRUE(after.query(TWO_ACTIVE).empty());
    int acknowledged = 0, failed = 0;
    for (const auto& told : outcomes)
        for (const Outcome& o : told) {
            // A failed registration, refresh (the CSeq stays 1) or removal changes nothing; after a failover only a
            // kept contact, or a removed one, is known, and a refresh whose reply was lost may have committed.
            acknowledged += o.registered;
            failed += !o.registered || !o.refreshed;
            const velmtest::Rows rows = after.query("SELECT cseq FROM contact WHERE address = '" + o.address + "'");
            const velmtest::Rows told =
                o.registered && !o.unregistered ? velmtest::Rows{{o.refreshed ? "2" : "1"}} : velmtest::Rows{};
            const bool refreshLost = !exactly && o.registered && !o.refreshed && !o.unregistered;
            if (exactly || o.unregistered || (o.registered && !o.removing)) {
                EXPECT_TRUE(rows == told || (refreshLost && rows == velmtest::Rows{{"2"}})) << o.address;
            }
        }
    EXPECT_GT(acknowledged, 100);
    EXPECT_GT(failed, 0);
}

// A primary and its synchronous standby of the test's own, the schema in database velm, sockets in the run's socket
// directory (scripts/pg-failover-pair); both stop, and their files go, on destruction. Their directory is in the run
// server's, so that should the test be killed, its removal by the run's end makes them shut down too.
struct StandbyPair {
    static bool script(const std::string& arguments) {
        return std::system(("VELM_PG_SOCKDIR=" + velmtest::server().host + " " VELM_PAIR_SCRIPT " " + arguments +
                            " >/dev/null").c_str()) == 0;
    }
    StandbyPair() {
        if (!script("start " + dir + " " + port + " " VELM_SCHEMA_FILE " sync"))
            throw std::runtime_error("cannot start a primary and its standby in " + dir);
    }
    ~StandbyPair() { EXPECT_TRUE(script("stop " + dir)); }
    const std::string dir = velmtest::server().dir + "/pair-" + std::to_string(getpid());
    // A range of their own: scratch servers take 20000-59999.
    const std::string port = std::to_string(60000 + getpid() % 2700 * 2), standbyPort = std::to_string(std::stoi(port) + 1);
};

} // namespace

TEST_F(Registration, ALostConnectionAfterTheSetIsLockedTakesTheRollbackLadder) {
    provision(activeA, {});
    Outputs out;
    // B demotes A first, then the session ends as B's row is inserted.
    Session kill(db, backendPid(), 1, "INSERT INTO contact", false);
    DatabaseResult result = call(Register, Steps, one(B))(service, key, out);
    ASSERT_TRUE(kill.killed());
    const std::vector<std::string> log = kill.lines("LocationService");
    EXPECT_TRUE(result.queryError()) << result.getErrorMessage();
    EXPECT_EQ("", reported(out));
    auto texts = alarms.texts("zuVELMProxyDBAccessFailed");
    ASSERT_EQ(2u, texts.size());
    EXPECT_EQ("database failure - registerContacts_12. " + result.getErrorMessage(), texts[0]);
    EXPECT_EQ(0u, texts[1].rfind("database failure - registerContacts_14. ", 0)) << texts[1];
    ASSERT_EQ(2u, log.size());
    EXPECT_EQ("registerContacts failed rollback: " + result.getErrorMessage(), log[0]);
    EXPECT_EQ(0u, log[1].rfind("registerContacts second rollback failed : ", 0)) << log[1];
    // The server rolled the demotion back with the session.
    EXPECT_EQ(activeA, snapshot());
}

// The churn while its sessions are killed and the server restarts: a failed step changes nothing.
TEST(RegistrationUnderFaults, KilledSessionsAndARestartLoseNothingAndNeverShowTwoActiveContacts) {
    velmtest::resetProperties();
    velmtest::ScratchServer scratch(true);
    std::atomic<int> kills{0};
    churn("velm_template", scratch.port(), scratch.port(), scratch.database(), [&](const std::atomic<bool>& churning) {
        std::thread restart([&] {
            std::this_thread::sleep_for(FAULT_AFTER);
            scratch.restart();
        });
        Observer observer{scratch.database(), "killer"};
        for (; churning; std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            kills += observer.rows("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = "
                                   "'velm_template' AND application_name = '' AND backend_type = 'client backend' "
                                   "ORDER BY random() LIMIT 1");
        restart.join();
    }, true);
    EXPECT_GT(kills, 50);
}

// The churn through a location naming a primary and its synchronous standby, both read-write only, while the primary
// dies and the standby is promoted; then the digit-prefix tree is built from the new primary, with a row written there.
TEST(RegistrationUnderFaults, APromotedStandbyKeepsWhatWasAcknowledgedAndEveryRegistrarWorksAgain) {
    velmtest::resetProperties();
    StandbyPair pair;
    const std::string socket = velmtest::server().host;
    const std::string location = "host=" + socket + "," + socket + " port=" + pair.port + "," + pair.standbyPort +
                                 " dbname=velm target_session_attrs=read-write";
    churn("velm", pair.port, pair.standbyPort, location, [&](const std::atomic<bool>&) { // set 1 is provisioned now
        velmtest::AdminConnection("velm", pair.port).exec("INSERT INTO prefix_map (prefix, csid) VALUES ('555', 1)");
        std::this_thread::sleep_for(FAULT_AFTER);
        ASSERT_TRUE(StandbyPair::script("fail " + pair.dir));
    }, false);
    velmtest::AdminConnection("velm", pair.standbyPort).exec("INSERT INTO prefix_map (prefix, csid) VALUES ('666', 2)");
    LocationService service;
    ASSERT_TRUE(service.connect(location.c_str(), "velm", "").okay());
    ASSERT_TRUE(service.recreatePrefixMap().okay());
    EXPECT_EQ(1, velmtest::prefixCsid(service, "5551"));
    EXPECT_EQ(2, velmtest::prefixCsid(service, "6661"));
    service.destroyPrefixmap();
}
