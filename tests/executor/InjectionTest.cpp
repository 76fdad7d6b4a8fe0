// Hostile text through every way a caller hands text to the library: each
// value either reaches the server as one quoted literal, escaped, or is
// refused; no statement of its own ever runs.
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

#include <cctype>
#include <fstream>
#include <functional>
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

// `reachesServer` false: the server refuses the text (it is not UTF-8), so
// the operation fails and nothing is stored. `mayBeTooLong`: an indexed
// column may refuse it (a query error, nothing stored).
struct Hostile {
    const char* name;
    std::string value;
    bool reachesServer;
    bool mayBeTooLong = false;
};

const std::vector<Hostile>& hostileValues() {
    static const std::vector<Hostile> values{
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
    return values;
}

// What a C string of `value` holds.
std::string asCString(const std::string& value) {
    return value.substr(0, value.find('\0'));
}

// The value as a single-quoted literal: quotes doubled. Backslashes stay as
// they are, as the server reads standard-conforming strings.
std::string literal(const std::string& value) {
    std::string text = "'";
    for (char c : asCString(value)) {
        if (c == '\'')
            text += c;
        text += c;
    }
    return text + "'";
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The statements the library sent while `capture` lived.
std::vector<std::string> statements(const velmtest::TraceCapture& capture) {
    const std::string prefix = "Executing query: \n";
    std::vector<std::string> found;
    for (const auto& line : capture.lines("DatabaseConnection"))
        if (line.rfind(prefix, 0) == 0)
            found.push_back(line.substr(prefix.size(), line.size() - prefix.size() - 1));
    return found;
}

// The server log from the moment this object is made.
class ServerLog {
public:
    ServerLog() : m_path(velmtest::server().dir + "/server.log") {
        std::ifstream log(m_path, std::ios::binary | std::ios::ate);
        m_start = log.tellg();
    }
    std::string since() const {
        std::ifstream log(m_path, std::ios::binary);
        log.seekg(m_start);
        return std::string(std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>());
    }

private:
    std::string m_path;
    std::streamoff m_start;
};

// One database and service for all values of one entry point; `key` is
// alice@example.com, whose set holds A (header <A>) before each value.
class Target {
public:
    Target() {
        velmtest::resetProperties();
        key = velmtest::provisionAddress(db, 1, "alice", "example.com");
        csid = std::atoi(
            db.admin().value("SELECT csid FROM public_address WHERE public_address_id = " + std::to_string(key)).c_str());
        db.admin().exec("CREATE TABLE canary (alive integer); INSERT INTO canary VALUES (1)");
        EXPECT_TRUE(service.connect(db.name().c_str(), "velm", "").okay());
    }
    void reset() {
        db.admin().exec("DELETE FROM contact");
        velmtest::Provisioning(db.admin()).contact(csid, A, "0.800000", time(nullptr) + 3600);
        service.m_useAutoCommit = false;
    }
    // The column of the one contact of the set; empty when there is none.
    std::string stored(const char* column) {
        velmtest::Rows rows = db.admin().query(std::string("SELECT ") + column + " FROM contact ORDER BY contact_id DESC");
        return rows.empty() ? std::string() : rows[0][0];
    }

    velmtest::TestDatabase db;
    LocationService service;
    int key = 0;
    int csid = 0;
};

// A contact column that carries outside text, and how the test sets it.
using Setter = void (*)(ContactRecord&, const std::string&);
struct Field {
    const char* column;
    Setter set;
};

Setter setter(const std::string& column) {
    static const std::map<std::string, Setter> setters{
        {"address", [](ContactRecord& c, const std::string& v) { c.setAddress(v); }},
        {"contact_header", [](ContactRecord& c, const std::string& v) { c.setContactHeader(v); }},
        {"call_id", [](ContactRecord& c, const std::string& v) { c.setCallId(v); }},
        {"path_vector", [](ContactRecord& c, const std::string& v) { c.setPathVector(v); }},
        {"capabilities", [](ContactRecord& c, const std::string& v) { c.setCapabilities(v); }},
        {"qvalue", [](ContactRecord& c, const std::string& v) { c.setQvalue(v); }},
    };
    return setters.at(column);
}

// The escaped columns of a statement's column table. A column added there
// without a setter above stops the test program at its start. permanent is
// left out: a boolean column, which the server refuses any other text for.
template <class Row>
std::vector<Field> textColumns(const velm::columns::Columns<Row>& columns) {
    std::vector<Field> fields;
    for (const velm::columns::Column<Row>& column : columns)
        if (velm::columns::isEscaped(column.quoting) && std::string(column.name) != "permanent")
            fields.push_back({column.name, setter(column.name)});
    return fields;
}

const Field ADDRESS{"address", setter("address")};

// How an entry point treats the hostile text.
enum class Expect {
    Stored,   // it becomes the field's stored value
    Selects,  // it only selects rows (none match): the set stays as it was
    Refused,  // a bad parameter; it goes into no statement
};

using Run = std::function<DatabaseResult(Target&, const std::string&)>;

// One way in: a run with the hostile value, and what must come of it.
struct EntryPoint {
    std::string name;
    Run run;
    Expect expect;
    const char* column;
};

using Steps = DatabaseResult (LocationService::*)(int, Contacts&, Contacts&, Contacts&, Contacts&);
using Plain = DatabaseResult (LocationService::*)(int, Contacts&);

// The contact as it is registered, with one field replaced.
ContactRecord registering(const Field& field, const std::string& value) {
    ContactRecord record = velmtest::contact(A);
    field.set(record, value);
    return record;
}

Run steps(Steps form, const Field& field) {
    return [form, field](Target& t, const std::string& value) {
        Contacts contacts{registering(field, value)}, added, deleted, changed;
        return (t.service.*form)(t.key, contacts, added, deleted, changed);
    };
}

Run plain(Plain form, const Field& field, bool autoCommit) {
    return [form, field, autoCommit](Target& t, const std::string& value) {
        Contacts contacts{registering(field, value)};
        t.service.m_useAutoCommit = autoCommit;
        return (t.service.*form)(t.key, contacts);
    };
}

Run executor(std::function<DatabaseResult(DatabaseCommandExecutor&, const char*)> command) {
    return [command](Target& t, const std::string& value) { return command(*t.service.m_exec, value.c_str()); };
}

Run facade(std::function<DatabaseResult(LocationService&, const char*)> operation) {
    return [operation](Target& t, const std::string& value) { return operation(t.service, value.c_str()); };
}

DatabaseResult fromInt(int answer) {
    DatabaseResult result;
    if (answer < 0)
        result.setQueryError();
    return result;
}

// Add a row here for every new operation that takes text from a caller; the
// columns of the contact statements come from their column tables.
std::vector<EntryPoint> entryPoints() {
    const Steps registerSteps = &LocationService::registerContacts;
    const Steps refreshSteps = &LocationService::updateContacts;
    const Plain registerPlain = &LocationService::registerContacts;
    const Plain refreshPlain = &LocationService::updateContacts;
    const Plain unregisterPlain = &LocationService::unregisterContacts;
    std::vector<EntryPoint> points;
    // Every registration form refuses a qvalue that is not a number from 0
    // to 1 before any statement; the executor takes it as it is.
    auto add = [&points](const char* form, const Field& field, Run run, bool checksQvalue) {
        bool refused = checksQvalue && std::string(field.column) == "qvalue";
        points.push_back({std::string(form) + "_" + field.column, run, refused ? Expect::Refused : Expect::Stored,
                          refused ? nullptr : field.column});
    };
    // Registration: a new contact (the set's own A is removed first).
    auto fresh = [](Run run) {
        return [run](Target& t, const std::string& value) {
            t.db.admin().exec("DELETE FROM contact");
            return run(t, value);
        };
    };
    for (const Field& field : textColumns(velm::registration::insertedColumns)) {
        add("RegisterSteps", field, fresh(steps(registerSteps, field)), true);
        add("RegisterScript", field, fresh(plain(registerPlain, field, false)), true);
        add("RegisterAutoCommit", field, fresh(plain(registerPlain, field, true)), true);
    }
    // Refreshing A: the step-by-step form finds it by its Contact header, the
    // others by its address.
    for (const Field& field : textColumns(velm::registration::updatedColumns)) {
        if (std::string(field.column) != "contact_header")
            add("RefreshSteps", field, steps(refreshSteps, field), true);
        add("RefreshScript", field, plain(refreshPlain, field, false), true);
        add("RefreshAutoCommit", field, plain(refreshPlain, field, true), true);
        add("UpdateContact", field,
            [field](Target& t, const std::string& value) {
                ContactRecord record = registering(field, value);
                return t.service.updateContact(t.key, record);
            },
            true);
    }
    for (const Field& field : textColumns(velm::columns::contactValues))
        add("AddContact", field,
            executor([field](DatabaseCommandExecutor& e, const char* v) {
                ContactRecord record = velmtest::contact("sip:other@192.0.2.30");
                field.set(record, v);
                return fromInt(e.addContact("alice", "example.com", record));
            }),
            false);
    points.push_back({"RefreshScript_address", plain(refreshPlain, ADDRESS, false), Expect::Selects, nullptr});
    points.push_back({"UnregisterScript_address", plain(unregisterPlain, ADDRESS, false), Expect::Selects, nullptr});
    points.push_back({"UnregisterAutoCommit_address", plain(unregisterPlain, ADDRESS, true), Expect::Selects, nullptr});
    points.push_back({"UnregisterWildcard_contact_header",
                      [](Target& t, const std::string& value) {
                          ContactRecord wildcard;
                          wildcard.setAddress("*");
                          wildcard.setContactHeader(value);
                          Contacts contacts{wildcard};
                          return t.service.unregisterContacts(t.key, contacts);
                      },
                      Expect::Selects, nullptr});
    // The facade's lookups by name and the executor's commands that take
    // text: the value only selects rows.
    using Facade = std::function<DatabaseResult(LocationService&, const char*)>;
    using Command = std::function<DatabaseResult(DatabaseCommandExecutor&, const char*)>;
    const std::vector<std::pair<const char*, Facade>> lookups{
        {"IsLocalUser_user", [](LocationService& s, const char* v) { return s.isLocalUser(v, "example.com"); }},
        {"GetPublicAddressKey_user",
         [](LocationService& s, const char* v) {
             int key = 0;
             return s.getPublicAddressKey(v, "example.com", key);
         }},
        {"GetPublicAddressKeyCSID_host",
         [](LocationService& s, const char* v) {
             int key = 0, csid = 0;
             return s.getPublicAddressKeyCSID("alice", v, key, csid);
         }},
        {"FacadeLookupSubscriber_domain",
         [](LocationService& s, const char* v) {
             velm::SubscriberRecord found;
             return s.lookupSubscriber("alice", v, found);
         }},
        {"FacadeGetIdentity_user",
         [](LocationService& s, const char* v) {
             std::string identity;
             return s.getIdentity(v, "example.com", identity);
         }},
        {"LookupContacts_user",
         [](LocationService& s, const char* v) {
             std::string ordering;
             bool redirect = false;
             Contacts contacts;
             return s.lookupContacts(v, "example.com", "sip:alice@example.com", ordering, redirect, contacts);
         }},
        {"FacadeGetProxyConfig",
         [](LocationService& s, const char* v) {
             std::vector<velm::ProxyConfig> items;
             return s.getProxyConfig(v, items);
         }},
        {"ResolveConfSvrUri_authUser",
         [](LocationService& s, const char* v) {
             bool flag = false;
             ContactRecord bridge;
             return s.resolveConfSvrUri(v, flag, bridge);
         }},
    };
    for (const auto& lookup : lookups)
        points.push_back({lookup.first, facade(lookup.second), Expect::Selects, nullptr});
    points.push_back({"GetSipEventAggregator_id", facade([](LocationService& s, const char* v) {
                          velm::SipEventAggregator aggregator;
                          return s.getSipEventAggregator(v, aggregator);
                      }),
                      Expect::Refused, nullptr});
    const std::vector<std::pair<const char*, Command>> commands{
        {"LookupPublicAddress_handle",
         [](DatabaseCommandExecutor& e, const char* v) {
             velm::PublicAddressRecord found;
             return e.lookupPublicAddress(v, "example.com", found);
         }},
        {"GetIdentity_domain",
         [](DatabaseCommandExecutor& e, const char* v) {
             std::string identity;
             return e.getIdentity("alice", v, identity);
         }},
        {"LookupExtension",
         [](DatabaseCommandExecutor& e, const char* v) {
             int paid = 0, registered = 0;
             std::string handle, domain;
             return e.lookupExtension(v, paid, handle, domain, registered);
         }},
        {"LookupSubscriber_handle",
         [](DatabaseCommandExecutor& e, const char* v) {
             velm::SubscriberRecord found;
             return fromInt(e.lookupSubscriber(v, "example.com", found, false));
         }},
        {"GetProxyConfig",
         [](DatabaseCommandExecutor& e, const char* v) {
             std::vector<velm::ProxyConfig> items;
             return e.getProxyConfig(v, items);
         }},
        {"GetSystemParameterValue_name",
         [](DatabaseCommandExecutor& e, const char* v) {
             std::string value;
             return e.getSystemParameterValue("velm", "system", v, value);
         }},
        {"UpdateTimer_handle",
         [](DatabaseCommandExecutor& e, const char* v) { return e.updateTimer(v, "example.com", 60); }},
        {"UseOneAvailConfExt",
         [](DatabaseCommandExecutor& e, const char* v) {
             std::string extension;
             return e.useOneAvailConfExt(v, extension);
         }},
        {"RemoveContact_domain",
         [](DatabaseCommandExecutor& e, const char* v) { return fromInt(e.removeContact("alice", v, A)); }},
    };
    for (const auto& command : commands)
        points.push_back({command.first, executor(command.second), Expect::Selects, nullptr});
    points.push_back({"ChangeSubscriberPassword", executor([](DatabaseCommandExecutor& e, const char* v) {
                          return fromInt(e.changeSubscriberPassword(1, v));
                      }),
                      Expect::Stored, "(SELECT s_password FROM subscriber WHERE sid = 1)"});
    return points;
}

void PrintTo(const EntryPoint& entry, std::ostream* out) {
    *out << entry.name;
}

class Injection : public testing::TestWithParam<EntryPoint> {};

TEST_P(Injection, EachValueIsOneEscapedLiteralOrRefused) {
    const EntryPoint& entry = GetParam();
    Target target;
    for (const Hostile& hostile : hostileValues()) {
        SCOPED_TRACE(hostile.name);
        target.reset();
        const std::string before = target.stored("address || ' ' || cseq");
        ServerLog log;
        DatabaseResult result;
        std::vector<std::string> sent;
        {
            velmtest::TraceCapture capture({"DatabaseConnection"});
            result = entry.run(target, hostile.value);
            sent = statements(capture);
        }

        EXPECT_EQ("1", target.db.admin().value("SELECT count(*) FROM canary"));
        if (entry.expect == Expect::Refused) {
            // The step-by-step registration still opens and ends its
            // transaction; no statement carries the value.
            EXPECT_TRUE(result.badParameter()) << result.getErrorMessage();
            for (const std::string& statement : sent)
                EXPECT_EQ(std::string::npos, statement.find(asCString(hostile.value))) << statement;
            continue;
        }
        if (!hostile.reachesServer) {
            if (entry.expect == Expect::Stored) {
                EXPECT_FALSE(result.okay());
                EXPECT_NE(asCString(hostile.value), target.stored(entry.column));
            }
            continue;
        }
        // The value went out once or more as one literal, and the server ran
        // each statement exactly as it was sent.
        const std::string logged = log.since();
        // Names are compared in lower case, so the facade may lower them.
        const std::string quoted = lower(literal(hostile.value));
        int carrying = 0;
        for (const std::string& statement : sent) {
            carrying += lower(statement).find(quoted) != std::string::npos;
            EXPECT_NE(std::string::npos, logged.find("statement: " + statement)) << statement.substr(0, 200);
        }
        EXPECT_GT(carrying, 0);
        if (entry.expect == Expect::Stored && !result.okay() && hostile.mayBeTooLong) {
            EXPECT_TRUE(result.queryError());
            EXPECT_TRUE(asCString(hostile.value) != target.stored(entry.column));
        } else if (entry.expect == Expect::Stored) {
            EXPECT_TRUE(result.okay()) << result.getErrorMessage().substr(0, 300);
            EXPECT_TRUE(asCString(hostile.value) == target.stored(entry.column));
        } else {
            EXPECT_EQ(before, target.stored("address || ' ' || cseq"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, Injection, testing::ValuesIn(entryPoints()),
                         [](const testing::TestParamInfo<EntryPoint>& info) { return info.param.name; });

} // namespace
