// Hostile text through every way in for a caller's text: one escaped literal each, or refused; never a statement.
#include "Columns.h"
#include "ContactRecord.h"
#include "DatabaseCommandExecutor.h"
#include "LocationService.h"
#include "Provisioning.h"
#include "ProxyConfig.h"
#include "PublicAddressRecord.h"
#include "RegistrationText.h"
#include "Registrations.h"
#include "SipEventAggregator.h"
#include "SubscriberRecord.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>

using velm::ContactRecord;
using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velm::LocationService;
using Contacts = std::vector<ContactRecord>;

namespace {

const char* const A = "sip:alice@192.0.2.10:5060";
const std::string DROP = "'; DROP TABLE canary; --";
// What tells whether the set changed.
const char* const SET = "address || ' ' || cseq";

// `reachesServer` false: the server refuses the text (it is not UTF-8), so
// the operation fails and nothing is stored. `mayBeTooLong`: an indexed
// column may refuse it (a query error, nothing stored).
struct Hostile {
    const char* name;
    std::string value;
    bool reachesServer;
    bool mayBeTooLong = false;
};

const std::vector<Hostile> HOSTILE{
    {"quote", "o'neil", true},
    {"backslashes", "back\\slash\\", true},
    {"semicolon", "a;b", true},
    {"stacked statement", DROP, true},
    {"escaped quote", "\\" + DROP, true},
    {"NUL", std::string("cut\0", 4) + DROP, true},
    {"not UTF-8", "\xff\xfe" + DROP, false},
    {"UTF-8 lead byte before a quote", "\xc3" + DROP, false},
    {"1 MB", std::string(1 << 20, 'x') + DROP, true, true},
};

// What a C string of `value` holds.
std::string asCString(const std::string& value) {
    return value.substr(0, value.find('\0'));
}

// The value as a single-quoted literal: quotes doubled. Backslashes stay as
// they are, as the server reads standard-conforming strings.
std::string literal(const std::string& value) {
    std::string text = "'";
    for (char c : asCString(value))
        text += c == '\'' ? std::string(2, c) : std::string(1, c);
    return text + "'";
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

// One database and service for all values of one entry point, `key` being
// alice@example.com; and the value, the contact A that carries it, and room
// for what the entry point answers.
struct Target {
    Target() {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        csid = std::atoi(
            db.admin().value("SELECT csid FROM public_address WHERE public_address_id = " + std::to_string(key)).c_str());
        db.admin().exec("CREATE TABLE canary (alive integer); INSERT INTO canary VALUES (1)");
        EXPECT_TRUE(s.connect(db.name().c_str(), "velm", "").okay());
    }
    // A alone in the set, unless `empty`.
    void reset(bool empty) {
        db.admin().exec("DELETE FROM contact");
        if (!empty)
            velmtest::Provisioning(db.admin()).contact(csid, A, "0.800000", time(nullptr) + 3600);
        s.m_useAutoCommit = false;
        contacts = {velmtest::contact(A)};
    }
    // The column of the newest contact; empty when there is none.
    std::string stored(const char* column) {
        velmtest::Rows rows = db.admin().query(std::string("SELECT ") + column + " FROM contact ORDER BY contact_id DESC");
        return rows.empty() ? std::string() : rows[0][0];
    }
    DatabaseCommandExecutor& e() { return *s.m_exec; }

    velmtest::TestDatabase db;
    LocationService s;
    int key = 0, csid = 0;
    const char* v = nullptr;
    Contacts contacts, found;
    int paid = 0, sid = 0;
    bool flag = false;
    std::string text, other;
    ContactRecord contact;
    velm::SubscriberRecord subscriber;
    velm::PublicAddressRecord address;
    std::vector<velm::ProxyConfig> configs;
    velm::SipEventAggregator aggregator;
};

// A contact column that carries outside text, and how the test sets it.
using Setter = void (*)(ContactRecord&, const std::string&);
struct Field {
    const char* column;
    Setter set;
};

const std::map<std::string, Setter> SETTERS{
    {"address", [](ContactRecord& c, const std::string& v) { c.setAddress(v); }},
    {"contact_header", [](ContactRecord& c, const std::string& v) { c.setContactHeader(v); }},
    {"call_id", [](ContactRecord& c, const std::string& v) { c.setCallId(v); }},
    {"path_vector", [](ContactRecord& c, const std::string& v) { c.setPathVector(v); }},
    {"capabilities", [](ContactRecord& c, const std::string& v) { c.setCapabilities(v); }},
    {"qvalue", [](ContactRecord& c, const std::string& v) { c.setQvalue(v); }},
};

// The escaped columns of a table but `leftOut` and permanent, a boolean the server
// refuses other text for. One without a setter above stops the program at its start.
template <class Row>
std::vector<Field> textColumns(const velm::columns::Columns<Row>& columns, const std::string& leftOut = "") {
    std::vector<Field> fields;
    for (const velm::columns::Column<Row>& column : columns)
        if (velm::columns::isEscaped(column.quoting) && column.name != std::string("permanent") &&
            column.name != leftOut)
            fields.push_back({column.name, SETTERS.at(column.name)});
    return fields;
}

// How an entry point treats the hostile text.
enum class Expect {
    Stored,   // it becomes the field's stored value
    Selects,  // it only selects rows (none match): the set stays as it was
    Refused,  // a bad parameter; it goes into no statement
};

DatabaseResult fromInt(int answer) {
    DatabaseResult result;
    if (answer < 0)
        result.setQueryError();
    return result;
}

using Run = DatabaseResult (*)(Target&);

// The forms that take contacts: step by step with empty output vectors, and
// the short form as one script or with auto-commit.
template <DatabaseResult (LocationService::*form)(int, Contacts&, Contacts&, Contacts&, Contacts&)>
DatabaseResult steps(Target& t) {
    Contacts added, deleted, changed;
    return (t.s.*form)(t.key, t.contacts, added, deleted, changed);
}
template <DatabaseResult (LocationService::*form)(int, Contacts&), bool autoCommit>
DatabaseResult plain(Target& t) {
    t.s.m_useAutoCommit = autoCommit;
    return (t.s.*form)(t.key, t.contacts);
}

// A way in, tried once for each field: the value goes into the field of A
// (after the set's own A is removed when `fresh`), or with no setter, the
// field names where a stored value is read. `checksQvalue`: a qvalue that
// is not a number from 0 to 1 is refused before any statement.
struct Way {
    std::string name;
    Run run;
    Expect expect = Expect::Selects;
    std::vector<Field> fields = {{}};
    bool fresh = false;
    bool checksQvalue = true;
};

std::vector<Way> ways() {
    const auto inserted = textColumns(velm::registration::insertedColumns);
    const auto updated = textColumns(velm::registration::updatedColumns);
    const std::vector<Field> address{{"address", SETTERS.at("address")}};
    const std::vector<Field> header{{"contact_header", SETTERS.at("contact_header")}};
    const std::vector<Field> password{{"(SELECT s_password FROM subscriber WHERE sid = 1)", nullptr}};
    const Expect stored = Expect::Stored, selects = Expect::Selects, refused = Expect::Refused;
    return {
        {"RegisterSteps", steps<&LocationService::registerContacts>, stored, inserted, true},
        {"RegisterScript", plain<&LocationService::registerContacts, false>, stored, inserted, true},
        {"RegisterAutoCommit", plain<&LocationService::registerContacts, true>, stored, inserted, true},
        // The step-by-step refresh finds A by its Contact header, the others by its address.
        {"RefreshSteps", steps<&LocationService::updateContacts>, stored,
         textColumns(velm::registration::updatedColumns, "contact_header")},
        {"RefreshScript", plain<&LocationService::updateContacts, false>, stored, updated},
        {"RefreshAutoCommit", plain<&LocationService::updateContacts, true>, stored, updated},
        {"UpdateContact", [](Target& t) { return t.s.updateContact(t.key, t.contacts.front()); }, stored, updated},
        {"AddContact", [](Target& t) { return fromInt(t.e().addContact("alice", "example.com", t.contacts.front())); },
         stored, textColumns(velm::columns::contactValues), true, false},
        {"RefreshScript", plain<&LocationService::updateContacts, false>, selects, address},
        {"UnregisterScript", plain<&LocationService::unregisterContacts, false>, selects, address},
        {"UnregisterAutoCommit", plain<&LocationService::unregisterContacts, true>, selects, address},
        {"UnregisterWildcard",
         [](Target& t) { return t.contacts.front().setAddress("*"), t.s.unregisterContacts(t.key, t.contacts); },
         selects, header},
        // The facade's and the executor's operations that take a name or a
        // key as text.
        {"IsLocalUser_user", [](Target& t) { return t.s.isLocalUser(t.v, "example.com"); }},
        {"GetPublicAddressKey_user", [](Target& t) { return t.s.getPublicAddressKey(t.v, "example.com", t.paid); }},
        {"GetPublicAddressKeyCSID_host",
         [](Target& t) { return t.s.getPublicAddressKeyCSID("alice", t.v, t.paid, t.sid); }},
        {"FacadeLookupSubscriber_domain", [](Target& t) { return t.s.lookupSubscriber("alice", t.v, t.subscriber); }},
        {"FacadeGetIdentity_user", [](Target& t) { return t.s.getIdentity(t.v, "example.com", t.text); }},
        {"LookupContacts_user",
         [](Target& t) {
             return t.s.lookupContacts(t.v, "example.com", "sip:alice@example.com", t.text, t.flag, t.found);
         }},
        {"FacadeGetProxyConfig", [](Target& t) { return t.s.getProxyConfig(t.v, t.configs); }},
        {"ResolveConfSvrUri_authUser", [](Target& t) { return t.s.resolveConfSvrUri(t.v, t.flag, t.contact); }},
        {"GetSipEventAggregator_id", [](Target& t) { return t.s.getSipEventAggregator(t.v, t.aggregator); }, refused},
        {"LookupPublicAddress_handle",
         [](Target& t) { return t.e().lookupPublicAddress(t.v, "example.com", t.address); }},
        {"GetIdentity_domain", [](Target& t) { return t.e().getIdentity("alice", t.v, t.text); }},
        {"LookupExtension", [](Target& t) { return t.e().lookupExtension(t.v, t.paid, t.text, t.other, t.sid); }},
        {"LookupSubscriber_handle",
         [](Target& t) { return fromInt(t.e().lookupSubscriber(t.v, "example.com", t.subscriber, false)); }},
        {"GetProxyConfig", [](Target& t) { return t.e().getProxyConfig(t.v, t.configs); }},
        {"GetSystemParameterValue_name",
         [](Target& t) { return t.e().getSystemParameterValue("velm", "system", t.v, t.text); }},
        {"UpdateTimer_handle", [](Target& t) { return t.e().updateTimer(t.v, "example.com", 60); }},
        {"UseOneAvailConfExt", [](Target& t) { return t.e().useOneAvailConfExt(t.v, t.text); }},
        {"RemoveContact_domain", [](Target& t) { return fromInt(t.e().removeContact("alice", t.v, A)); }},
        {"ChangeSubscriberPassword", [](Target& t) { return fromInt(t.e().changeSubscriberPassword(1, t.v)); }, stored,
         password},
    };
}

// Every way once for each of its fields. Add a row to ways() for every new
// operation that takes text from a caller.
std::vector<Way> entryPoints() {
    std::vector<Way> points;
    for (const Way& way : ways())
        for (const Field& field : way.fields) {
            points.push_back(way);
            points.back().fields = {field};
            if (field.set)
                points.back().name += std::string("_") + field.column;
            if (way.checksQvalue && field.set && std::string(field.column) == "qvalue")
                points.back().expect = Expect::Refused;
        }
    return points;
}

void PrintTo(const Way& entry, std::ostream* out) {
    *out << entry.name;
}

class Injection : public testing::TestWithParam<Way> {};

TEST_P(Injection, EachValueIsOneEscapedLiteralOrRefused) {
    const Way& entry = GetParam();
    const std::string LOG = velmtest::server().dir + "/server.log", QUERY = "Executing query: \n";
    Target target;
    for (const Hostile& hostile : HOSTILE) {
        SCOPED_TRACE(hostile.name);
        target.reset(entry.fresh);
        target.v = hostile.value.c_str();
        if (entry.fields[0].set)
            entry.fields[0].set(target.contacts.front(), hostile.value);
        const std::string before = target.stored(SET), value = asCString(hostile.value);
        const std::streamoff logStart = std::ifstream(LOG, std::ios::binary | std::ios::ate).tellg();
        velmtest::TraceCapture capture({"DatabaseConnection"});
        const DatabaseResult result = entry.run(target);
        std::vector<std::string> sent; // the statements the library sent
        for (const std::string& line : capture.lines("DatabaseConnection"))
            if (line.rfind(QUERY, 0) == 0)
                sent.push_back(line.substr(QUERY.size(), line.size() - QUERY.size() - 1));

        EXPECT_EQ("1", target.db.admin().value("SELECT count(*) FROM canary"));
        if (entry.expect == Expect::Refused) {
            // No statement carries it, though a step-by-step form still opens and ends its transaction.
            EXPECT_TRUE(result.badParameter()) << result.getErrorMessage();
            for (const std::string& statement : sent)
                EXPECT_EQ(std::string::npos, statement.find(value)) << statement;
            continue;
        }
        if (hostile.reachesServer) {
            // The value went out as one literal, the server ran each statement
            // as sent. Names are compared in lower case: the facade may lower them.
            std::ifstream log(LOG, std::ios::binary);
            log.seekg(logStart);
            const std::string logged(std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>{});
            const std::string quoted = lower(literal(hostile.value));
            int carrying = 0;
            for (const std::string& statement : sent) {
                carrying += lower(statement).find(quoted) != std::string::npos;
                EXPECT_NE(std::string::npos, logged.find("statement: " + statement)) << statement.substr(0, 200);
            }
            EXPECT_GT(carrying, 0);
        }
        if (entry.expect == Expect::Selects) {
            EXPECT_EQ(before, target.stored(SET));
        } else if (!hostile.reachesServer || (hostile.mayBeTooLong && !result.okay())) {
            // The server refused the value: nothing is stored.
            EXPECT_TRUE(hostile.reachesServer ? result.queryError() : !result.okay());
            EXPECT_TRUE(value != target.stored(entry.fields[0].column));
        } else {
            EXPECT_TRUE(result.okay()) << result.getErrorMessage().substr(0, 300);
            EXPECT_TRUE(value == target.stored(entry.fields[0].column));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, Injection, testing::ValuesIn(entryPoints()),
                         [](const testing::TestParamInfo<Way>& info) { return info.param.name; });

} // namespace
