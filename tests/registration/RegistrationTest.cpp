// Registration, refresh, unregistration and expiry in every form: what each leaves, refuses, and keeps when the session dies.
#include "AlarmCapture.h"
#include "AppProperties.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "QueryResultPtr.h"
#include "Registrations.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "Trace.h"

#include <gtest/gtest.h>

#include <algorithm>
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
// Set up beside the registered contacts: a permanent one and one without a
// Contact header, as provisioning stores them.
const char* const DESK = "sip:desk@192.0.2.20";
const char* const BARE = "sip:bare@192.0.2.21";

// Collects the statements sent and the LocationService log; when armed,
// ends the service's server session just before the k-th statement that
// contains `trigger`. With `allowReset` false the database is also closed to
// new sessions, so the connection cannot be reset.
class Session : public velm::TraceSink {
public:
    Session(velmtest::TestDatabase& db, int pid, int k = 0, std::string trigger = "", bool allowReset = true)
        : m_db(db), m_postgres("postgres"), m_pid(pid), m_k(k), m_trigger(std::move(trigger)),
          m_allowReset(allowReset) {
        velm::Trace::enable("DatabaseConnection", true);
        velm::Trace::setSink(this);
    }
    ~Session() override {
        velm::Trace::setSink(nullptr);
        velm::Trace::enable("DatabaseConnection", false);
        if (!m_allowReset)
            m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS true");
    }
    void write(const char* channel, const char* text) override {
        const std::string line(text), prefix = "Executing query: \n";
        if (std::string(channel) == "LocationService")
            log.push_back(line);
        if (line.rfind(prefix, 0) != 0)
            return;
        statements.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 1));
        if (line.find(m_trigger) == std::string::npos || ++m_seen != m_k)
            return;
        if (!m_allowReset)
            m_postgres.exec("ALTER DATABASE " + m_db.name() + " ALLOW_CONNECTIONS false");
        m_db.terminateBackend(m_pid);
    }
    bool killed() const { return m_k > 0 && m_seen >= m_k; }

    std::vector<std::string> statements;
    std::vector<std::string> log;

private:
    velmtest::TestDatabase& m_db;
    velmtest::AdminConnection m_postgres;
    int m_pid;
    int m_k;
    std::string m_trigger;
    bool m_allowReset;
    int m_seen = 0;
};

// What the forms with output vectors reported.
struct Outputs {
    Contacts added, deleted, changed;
};

// "+" added, "-" deleted, "~" changed, with the qvalue and CSeq reported;
// A, B and C by their letters.
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

// A REGISTER that refreshes `uri`: the next CSeq.
ContactRecord refreshed(const std::string& uri, const std::string& qvalue = "") {
    ContactRecord record = contact(uri, qvalue);
    record.setCseq(2);
    return record;
}

ContactRecord wildcard(const std::string& header = "") {
    ContactRecord record;
    record.setAddress("*");
    record.setContactHeader(header);
    return record;
}

// Expiring at a fixed time, so that the statement text is known.
ContactRecord fixed(const std::string& uri, const std::string& qvalue) {
    ContactRecord record = contact(uri, qvalue);
    record.setExpires(2000000000);
    return record;
}

// The forms: step by step with output vectors, one transaction script, and
// auto-commit statements, asked for through the short or the step-by-step
// form.
enum class Form { Steps, Script, AutoCommit, AutoCommitSteps };
enum class Op { Register, Refresh, Unregister };
using Call = std::function<DatabaseResult(LocationService&, int, Outputs&)>;
using Make = std::function<Contacts()>;

Call call(Op op, Form form, Make make) {
    return [=](LocationService& service, int key, Outputs& out) {
        Contacts contacts = make();
        service.m_useAutoCommit = form == Form::AutoCommit || form == Form::AutoCommitSteps;
        if (form == Form::Script || form == Form::AutoCommit) {
            using Plain = DatabaseResult (LocationService::*)(int, Contacts&);
            Plain plain = op == Op::Register  ? Plain(&LocationService::registerContacts)
                          : op == Op::Refresh ? Plain(&LocationService::updateContacts)
                                              : Plain(&LocationService::unregisterContacts);
            return (service.*plain)(key, contacts);
        }
        using Steps = DatabaseResult (LocationService::*)(int, Contacts&, Contacts&, Contacts&, Contacts&);
        Steps steps = op == Op::Register  ? Steps(&LocationService::registerContacts)
                      : op == Op::Refresh ? Steps(&LocationService::updateContacts)
                                          : Steps(&LocationService::unregisterContacts);
        return (service.*steps)(key, contacts, out.added, out.deleted, out.changed);
    };
}

Call expireOne = [](LocationService& service, int, Outputs& out) {
    return service.removeExpiredContacts(out.added, out.deleted, out.changed);
};
Call expireAll = [](LocationService& service, int, Outputs&) { return service.removeExpiredContacts(); };
Call withTreatment(const char* treatment, Call inner) {
    return [=](LocationService& service, int key, Outputs& out) {
        velm::AppProperties::set("Registrar", "QValueNotPresentRegisterTreatment", treatment);
        return inner(service, key, out);
    };
}

// The contacts before an operation, those among them that have expired, and
// the statements that set them up.
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
            bool gone = std::find(expired.begin(), expired.end(), entry.first) != expired.end();
            std::string header = entry.first == BARE ? "" : "<" + entry.first + ">";
            db.admin().exec("INSERT INTO contact (csid, address, qvalue, cseq, expires, permanent, contact_header) "
                            "VALUES (" + csid + ", '" + entry.first + "', '" +
                            entry.second.substr(0, entry.second.find(' ')) + "', 1, " +
                            std::to_string(time(nullptr) + (gone ? -60 : 3600)) + ", " +
                            (entry.first == DESK ? "true" : "false") + ", '" + header + "')");
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

// One operation that succeeds: the set before it, the call, the statements
// it sends, the set it leaves, what it reports, and the last statement's
// text ("CSID" for the set's sub-select) where it is checked.
struct Operation {
    const char* name;
    Stored before;
    std::vector<std::string> expired;
    Call call;
    int statements;
    Stored after;
    const char* reported;
    std::string lastStatement;
};

const Stored activeA{{A, "0.800000 1"}};
const Stored activeAInactiveB{{A, "0.800000 1"}, {B, "0.000000 1"}};
const Stored allThree{{A, "0.800000 1"}, {B, "0.000000 1"}, {C, "0.000000 1"}};
const Stored refreshedB{{A, "0.800000 1"}, {B, "0.000000 2"}};

Contacts only(ContactRecord record) { return {record}; }

const std::vector<Operation>& operations() {
    const Stored afterBC{{A, "0.800000 1"}, {B, "0.000000 1"}, {C, "0.000000 1"}};
    const Stored afterRefreshAB{{A, "0.800000 2"}, {B, "0.000000 2"}};
    const Make inactiveBC = [] { return Contacts{contact(B, "0.000000"), contact(C, "0.000000")}; };
    const Make refreshAB = [] { return Contacts{refreshed(A, "0.800000"), refreshed(B, "0.000000")}; };
    const Make bothAB = [] { return Contacts{contact(A), contact(B)}; };
    const std::string insertB = "INSERT INTO contact(address,csid,qvalue,expires,permanent,capabilities,"
                                "contact_header,call_id,cseq, path_vector)  VALUES('sip:alice@192.0.2.11:5060',";
    const std::string valuesB = ", '0.5',2000000000,'f','','<sip:alice@192.0.2.11:5060>',"
                                "'call-sip:alice@192.0.2.11:5060','1','')";
    static const std::vector<Operation> table{
        {"RegisterFirst", {}, {}, call(Op::Register, Form::Steps, [] { return only(contact(A, "1.0")); }), 7,
         activeA, "+A=0.800000/1", ""},
        {"RegisterDemotingTheActiveContact", activeA, {},
         call(Op::Register, Form::Steps, [] { return only(contact(B, "0.5")); }), 8,
         {{A, "0.000000 1"}, {B, "0.800000 1"}},
         "+B=0.800000/1 ~A=0.000000/1", ""},
        {"RegisterInactive", activeA, {}, call(Op::Register, Form::Steps, [] { return only(contact(B, "0")); }), 7,
         activeAInactiveB, "+B=0.000000/1", ""},
        {"RegisterWithoutQvalueTreatedInactive", activeA, {},
         withTreatment("inactive", call(Op::Register, Form::Steps, [] { return only(contact(B)); })), 7,
         activeAInactiveB, "+B=0.000000/1", ""},
        {"RegisterWithoutQvalueTreatmentIsCaseSensitive", activeA, {},
         withTreatment("Inactive", call(Op::Register, Form::Steps, [] { return only(contact(B)); })), 8,
         {{A, "0.000000 1"}, {B, "0.800000 1"}},
         "+B=0.800000/1 ~A=0.000000/1", ""},
        {"RegisterScriptStoresTheQvalueAsGiven", activeA, {},
         call(Op::Register, Form::Script, [] { return only(fixed(B, "0.5")); }), 1,
         {{A, "0.800000 1"}, {B, "0.5 1"}}, "",
         "BEGIN TRANSACTION; " + insertB + "CSID" + valuesB + "; COMMIT TRANSACTION;"},
        {"RegisterAutoCommit", activeA, {}, call(Op::Register, Form::AutoCommit, inactiveBC), 2, afterBC, "",
         ""},
        {"RegisterAutoCommitBySteps", activeA, {}, call(Op::Register, Form::AutoCommitSteps, inactiveBC), 2, afterBC,
         "", ""},
        {"Refresh", activeAInactiveB, {}, call(Op::Refresh, Form::Steps, [] { return only(refreshed(B, "1.0")); }),
         7, refreshedB, "~B=0.000000/2", ""},
        {"RefreshScript", activeAInactiveB, {}, call(Op::Refresh, Form::Script, refreshAB), 1, afterRefreshAB, "",
         ""},
        {"RefreshAutoCommit", activeAInactiveB, {}, call(Op::Refresh, Form::AutoCommit, refreshAB), 2,
         afterRefreshAB, "", ""},
        {"RefreshAutoCommitBySteps", activeAInactiveB, {}, call(Op::Refresh, Form::AutoCommitSteps, refreshAB), 2,
         afterRefreshAB, "", ""},
        {"UpdateOneContact", activeAInactiveB, {},
         [](LocationService& s, int key, Outputs&) {
             ContactRecord b = refreshed(B, "0.000000");
             b.setPathVector("<sip:edge.example.com;lr>");
             return s.updateContact(key, b);
         },
         1, refreshedB, "", ""},
        {"UnregisterPromotingTheOneLeft", activeAInactiveB, {},
         call(Op::Unregister, Form::Steps, [] { return only(contact(A)); }), 7, {{B, "0.800000 1"}},
         "-A=0.800000/1 ~B=0.800000/1", ""},
        {"UnregisterLeavingTwoInactive", allThree, {},
         call(Op::Unregister, Form::Steps, [] { return only(contact(A)); }), 6,
         {{B, "0.000000 1"}, {C, "0.000000 1"}}, "-A=0.800000/1", ""},
        {"UnregisterByHeaderWithDisplayName", activeA, {},
         call(Op::Unregister, Form::Steps,
              [] {
                  ContactRecord same = contact(A);
                  same.setContactHeader("\"Alice\" <sip:alice@192.0.2.10:5060>;expires=0");
                  return only(same);
              }),
         6, {}, "-A=0.800000/1", ""},
        {"UnregisterWildcard", activeAInactiveB, {}, call(Op::Unregister, Form::Steps, [] { return only(wildcard()); }),
         6, {}, "-A=0.800000/1 -B=0.000000/1", ""},
        {"UnregisterWildcardSparesPermanentAndHeaderless",
         {{A, "0.800000 1"}, {DESK, "0.000000 1"}, {BARE, "0.000000 1"}}, {},
         call(Op::Unregister, Form::Steps, [] { return only(wildcard("*")); }), 6,
         {{DESK, "0.000000 1"}, {BARE, "0.000000 1"}}, "-A=0.800000/1 -BARE=0.000000/1", ""},
        {"UnregisterScript", activeAInactiveB, {}, call(Op::Unregister, Form::Script, bothAB), 1, {},
         "", "BEGIN TRANSACTION; DELETE FROM contact WHERE address = 'sip:alice@192.0.2.10:5060' AND csid = CSID; "
             "DELETE FROM contact WHERE address = 'sip:alice@192.0.2.11:5060' AND csid = CSID; COMMIT TRANSACTION;"},
        {"UnregisterAutoCommit", activeAInactiveB, {}, call(Op::Unregister, Form::AutoCommit, bothAB), 2, {}, "",
         ""},
        {"UnregisterAutoCommitByHeader", activeAInactiveB, {},
         call(Op::Unregister, Form::AutoCommitSteps, [] { return only(wildcard("<sip:alice@192.0.2.11:5060>")); }),
         1, activeA, "", "DELETE FROM contact WHERE contact_header = '<sip:alice@192.0.2.11:5060>' AND csid = CSID"},
        {"ExpireAllSparingPermanent", {{A, "0.800000 1"}, {B, "0.000000 1"}, {DESK, "0.000000 1"}}, {A, DESK},
         expireAll, 1, {{B, "0.000000 1"}, {DESK, "0.000000 1"}}, "", ""},
        {"ExpireOnePromotingTheOneLeft", activeAInactiveB, {A}, expireOne, 7, {{B, "0.800000 1"}}, "-A=0.800000/1 ~B=0.800000/1", ""},
        {"ExpireOneOfTwoLeavingTwoInactive", allThree, {A, C}, expireOne, 6, {{B, "0.000000 1"}, {C, "0.000000 1"}},
         "-A=0.800000/1", ""},
    };
    return table;
}

class RegistrationForms : public Registration, public testing::WithParamInterface<size_t> {};

TEST_P(RegistrationForms, SendsTheStatementsAndLeavesAndReportsTheSetAsDescribed) {
    const Operation& operation = operations()[GetParam()];
    provision(operation.before, operation.expired);
    Outputs out;
    Session session(db, backendPid());
    DatabaseResult result = operation.call(service, key, out);
    ASSERT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ(operation.statements, static_cast<int>(session.statements.size()));
    EXPECT_EQ(operation.after, snapshot());
    EXPECT_EQ(operation.reported, reported(out));
    for (const ContactRecord& added : out.added)
        EXPECT_EQ(db.admin().value("SELECT contact_id FROM contact WHERE address = '" + added.address() + "'"),
                  std::to_string(added.contactId()));
    if (!operation.lastStatement.empty()) {
        std::string expected = operation.lastStatement, select = "(SELECT csid FROM public_address where "
                                                                 "public_address_id = " + std::to_string(key) + ")";
        for (size_t at = expected.find("CSID"); at != std::string::npos; at = expected.find("CSID"))
            expected.replace(at, 4, select);
        EXPECT_EQ(expected, session.statements.back());
    }
    EXPECT_TRUE(alarms.alarms().empty());
}

INSTANTIATE_TEST_SUITE_P(Operations, RegistrationForms, testing::Range<size_t>(0, operations().size()),
                         [](const testing::TestParamInfo<size_t>& info) { return operations()[info.param].name; });

// An operation the service refuses: nothing changes, nothing is reported,
// and only database failures are alarmed ("" for none), with the message.
struct Refusal {
    const char* name;
    Stored before;
    Call call;
    DatabaseResult::status status;
    const char* message;
    const char* alarm;
};

Call filled(Op op, Outputs prefilled) {
    return [=](LocationService& service, int key, Outputs& out) {
        out = prefilled;
        return call(op, Form::Steps, [] { return only(contact(A)); })(service, key, out);
    };
}

const std::vector<Refusal>& refusals() {
    static const std::vector<Refusal> table{
        {"QvalueThatIsNoNumber", {}, call(Op::Register, Form::Steps, [] { return only(contact(A, "high")); }),
         DatabaseResult::BADPARAM, nullptr, ""},
        {"RegisterIntoFilledOutputs", {}, filled(Op::Register, {{contact(B)}, {}, {contact(C)}}),
         DatabaseResult::BADPARAM, "addedContacts not empty", ""},
        {"UnregisterIntoFilledOutputs", activeA, filled(Op::Unregister, {{}, {}, {contact(C)}}),
         DatabaseResult::BADPARAM, "changedContacts not empty", ""},
        {"WildcardMixedWithAContact", activeA,
         call(Op::Unregister, Form::Steps, [] { return Contacts{wildcard(), contact(A)}; }),
         DatabaseResult::BADPARAM, "mixed contact headers", ""},
        {"UnregisterAnUnknownContact", activeAInactiveB,
         call(Op::Unregister, Form::Steps, [] { return Contacts{contact(B), contact(C)}; }),
         DatabaseResult::BADPARAM, "unregistering contact not registered", ""},
        {"UnregisterFromAnEmptySet", {}, call(Op::Unregister, Form::Steps, [] { return only(contact(A)); }),
         DatabaseResult::BADPARAM, "unregisteringContacts: no contacts", ""},
        {"RefreshAnUnknownContact", activeA, call(Op::Refresh, Form::Steps, [] { return only(contact(B)); }),
         DatabaseResult::BADPARAM, "re-reg address not found", ""},
        {"RefreshAnEmptySet", {}, call(Op::Refresh, Form::Steps, [] { return only(contact(A)); }),
         DatabaseResult::BADPARAM, "ExistingContacts empty", ""},
        {"ScriptForAnUnknownSet", {},
         [](LocationService& s, int key, Outputs& out) {
             return call(Op::Register, Form::Script, [] { return only(contact(A)); })(s, key + 100, out);
         },
         DatabaseResult::QUERY_ERROR, nullptr, "database failure - registerContacts_2. "},
        // The ".nextval" syntax of older databases.
        {"ContactIdFromASequence", {},
         [](LocationService& s, int, Outputs&) {
             std::string id;
             return s.getContactId(id);
         },
         DatabaseResult::QUERY_ERROR, nullptr, "database failure - getContactId. "},
    };
    return table;
}

class RegistrationRefusal : public Registration, public testing::WithParamInterface<size_t> {};

TEST_P(RegistrationRefusal, ChangesAndReportsNothing) {
    const Refusal& refusal = refusals()[GetParam()];
    provision(refusal.before, {});
    Outputs out;
    DatabaseResult result = refusal.call(service, key, out);
    EXPECT_EQ(refusal.status, result.m_status) << result.getErrorMessage();
    if (refusal.message != nullptr) {
        EXPECT_EQ(refusal.message, result.getErrorMessage());
    }
    EXPECT_EQ(refusal.before, snapshot());
    std::vector<std::string> expected;
    if (*refusal.alarm != '\0')
        expected.push_back(refusal.alarm + result.getErrorMessage());
    EXPECT_EQ(expected, alarms.texts("zuVELMProxyDBAccessFailed"));
    // A failed script was ended: the connection takes the next one.
    Contacts next{contact(C, "0")};
    EXPECT_TRUE(service.registerContacts(key, next).okay());
}

INSTANTIATE_TEST_SUITE_P(Cases, RegistrationRefusal, testing::Range<size_t>(0, refusals().size()),
                         [](const testing::TestParamInfo<size_t>& info) { return refusals()[info.param].name; });

// The session is lost just before statement k of one operation, and the
// connection may reset. Whatever the operation then reports must be what
// the database holds: on success the set as described, on failure the set
// as it was with nothing reported, and never two active contacts.
struct KillPoint {
    size_t operation;
    int k;
};

std::vector<KillPoint> killPoints() {
    std::vector<KillPoint> points;
    for (size_t operation = 0; operation < operations().size(); ++operation)
        for (int k = 1; k <= operations()[operation].statements; ++k)
            points.push_back({operation, k});
    return points;
}

class RegistrationLostSession : public Registration, public testing::WithParamInterface<KillPoint> {};

TEST_P(RegistrationLostSession, TheReportedResultIsWhatWasCommitted) {
    const Operation& operation = operations()[GetParam().operation];
    provision(operation.before, operation.expired);
    Outputs out;
    DatabaseResult result;
    {
        Session kill(db, backendPid(), GetParam().k);
        result = operation.call(service, key, out);
        ASSERT_TRUE(kill.killed());
    }
    Stored stored = snapshot();
    if (result.okay()) {
        EXPECT_EQ(operation.after, stored);
    } else {
        EXPECT_EQ(operation.before, stored) << result.getErrorMessage();
        EXPECT_EQ("", reported(out));
    }
    int active = 0;
    for (const auto& entry : stored)
        active += entry.second.rfind("0.800000 ", 0) == 0;
    EXPECT_LE(active, 1);
    velm::QueryResultPtr rows;
    EXPECT_TRUE(service.m_exec->execute("SELECT 1", rows).okay()) << "the service works again";
}

INSTANTIATE_TEST_SUITE_P(Operations, RegistrationLostSession, testing::ValuesIn(killPoints()),
                         [](const testing::TestParamInfo<KillPoint>& info) {
                             return std::string(operations()[info.param.operation].name) + "_before" +
                                    std::to_string(info.param.k);
                         });

} // namespace

TEST_F(Registration, ALostConnectionAfterTheSetIsLockedTakesTheRollbackLadder) {
    provision(activeA, {});
    Outputs out;
    DatabaseResult result;
    std::vector<std::string> log;
    {
        // B demotes A first, then the session ends as B's row is inserted.
        Session kill(db, backendPid(), 1, "INSERT INTO contact", false);
        result = call(Op::Register, Form::Steps, [] { return only(contact(B)); })(service, key, out);
        ASSERT_TRUE(kill.killed());
        log = kill.log;
    }
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

TEST_F(Registration, DumpListsTheContactFieldsOnePerLine) {
    ContactRecord record = contact(A, "0.8");
    record.setUser("alice");
    record.setDomain("example.com");
    record.setCsid(4);
    record.setCapabilities("audio");
    record.setType("sip");
    EXPECT_EQ(std::string("user=alice\ndomain=example.com\naddress=") + A + "\ncsid=4\nqvalue=0.8\n" +
                  "capabilities=audio\ncontactHeader=<" + A + ">\ncallId=call-" + A + "\ntype=sip\n",
              service.dumpToString(record));
}
