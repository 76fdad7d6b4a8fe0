// The backends: one conformance suite run against PostgreSQL (plain and through
// the prepared path) and ODBC, then the cases of one backend only as tables.
#include "AppProperties.h"
#include "DatabaseConnection.h"
#include "DatabaseConnectionOdbc.h"
#include "DatabaseConnectionPgsql.h"
#include "OdbcDataSource.h"
#include "QueryResultOdbc.h"
#include "QueryResultPgsql.h"
#include "QueryResultPtr.h"
#include "StatementShape.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using velm::DatabaseConnection;
using velm::DatabaseConnectionOdbc;
using velm::QueryResultPtr;
using velm::StatementShape;
using velmtest::AdminConnection;
using velmtest::OdbcDataSource;
using velmtest::TestDatabase;
using velmtest::TraceCapture;

namespace {

using Connection = std::unique_ptr<DatabaseConnection, void (*)(DatabaseConnection*)>;
using Texts = std::vector<std::string>;

// What one backend is, and how it differs where the two really differ.
struct Backend {
    const char* name;
    const char* databaseType;       // [SipServer] DatabaseType that makes its results
    bool prepared;                  // [Database] PreparedStatements=True; otherwise the run's configuration
    bool dataSource;                // connects to an ODBC data source, not to a database name
    bool failuresInResult;          // a failing statement returns true, its text and SQLSTATE in the result
    int attemptsOfAFailure;         // how often a failing statement reaches the server
    const char* missingRow;         // what getValue() gives for a row outside the result
    bool freshResultFailed;         // an unexecuted result counts as failed
    bool warningFails;              // a statement that raises a warning counts as failed
    bool alwaysActive;              // active() says true whatever the connection's state
    bool closedReconnects;          // the next statement after close() connects again
    int statementsLostWithSession;  // statements failing after the server ended the session
    int successCode;                // getErrorCode() of a select, and its name
    const char* successName;
    const char* selectMessage;      // a select's result text once its rows are read
    const char* unknownTargetText;  // part of the text when connect()'s target does not exist
    const char* afterFailedConnect; // the text of a statement after that connect
    Texts connectTraces;            // lines a connect to database {db} traces
    Texts reconnectTraces;          // one of them is traced when a lost session is set up again
    Texts afterServerStops;         // parts of the texts of successive statements with the server gone
};

void PrintTo(const Backend& backend, std::ostream* out) { *out << backend.name; }

Connection newConnection(const Backend& backend) {
    if (backend.dataSource)
        return Connection(new DatabaseConnectionOdbc(),
                          [](DatabaseConnection* conn) { delete static_cast<DatabaseConnectionOdbc*>(conn); });
    return Connection(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// `text` with every `key` replaced by `value`.
std::string substitute(std::string text, const std::string& key, const std::string& value) {
    for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + value.size()))
        text.replace(at, key.size(), value);
    return text;
}

// pg_terminate_backend only signals the session; wait until it has ended so
// that the next statement meets the ended session, not a live one.
void endSession(AdminConnection& admin, int pid) {
    ASSERT_EQ("t", admin.value("SELECT pg_terminate_backend(" + std::to_string(pid) + ")"));
    const std::string stillThere = "SELECT count(*) FROM pg_stat_activity WHERE pid = " + std::to_string(pid);
    for (int attempt = 0; attempt < 500 && admin.value(stillThere) != "0"; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ("0", admin.value(stillThere));
}

class Conformance : public testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        velm::AppProperties::set("SipServer", "DatabaseType", backend.databaseType);
        if (backend.prepared)
            velm::AppProperties::set("Database", "PreparedStatements", "True");
        db.admin().exec("CREATE SEQUENCE attempts");
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, attempt bigint DEFAULT nextval('attempts'), "
                        "name varchar(20), note text)");
    }

    // What connect() takes to reach `database` on the server at `port` (empty: the run's).
    std::string target(const std::string& database, const std::string& port = std::string()) {
        if (!backend.dataSource)
            return port.empty() ? database : "postgresql://:" + port + "/" + database;
        source = std::make_unique<OdbcDataSource>(database, port);
        return source->name();
    }

    void connect(const std::string& database, const std::string& port = std::string()) {
        ASSERT_TRUE(conn->connect(target(database, port).c_str(), "velm", "secret")) << conn->getErrorMessage();
    }

    int backendPid() {
        QueryResultPtr result;
        EXPECT_TRUE(conn->execute("SELECT pg_backend_pid()", result)) << conn->getErrorMessage();
        return std::atoi(result.getValue(0, 0));
    }

    const Backend& backend = GetParam();
    TestDatabase db;
    std::unique_ptr<OdbcDataSource> source;
    Connection conn = newConnection(backend);
};

TEST_P(Conformance, FailedConnectsLeaveNothingToRunStatementsOn) {
    const char* const arguments[][3] = {
        {nullptr, "velm", "secret"}, {"db", nullptr, "secret"}, {"db", "velm", nullptr}};
    for (const auto& args : arguments) {
        EXPECT_FALSE(conn->connect(args[0], args[1], args[2]));
        EXPECT_EQ("missing connection parameters", conn->getErrorMessage());
    }
    QueryResultPtr result;
    EXPECT_FALSE(conn->execute("SELECT 1", result));
    EXPECT_EQ("no connection", conn->getErrorMessage());
    // The statement never ran: the result is as made.
    EXPECT_EQ(backend.freshResultFailed, result.failed());
    EXPECT_EQ(0, result.rows());
    EXPECT_EQ(0, result.columns());
    EXPECT_STREQ(backend.missingRow, result.getValue(0, 0));
    EXPECT_EQ("00000", result.getSqlState());
    std::string name;
    EXPECT_EQ(-1, result.getErrorCode(name));
    EXPECT_EQ("NO QUERY EXECUTED", name);
    EXPECT_EQ(backend.alwaysActive, conn->active());
    if (!backend.alwaysActive) {
        EXPECT_EQ("no connection", conn->getErrorMessage());
        EXPECT_FALSE(conn->reset());
        EXPECT_EQ("no connection to reset", conn->getErrorMessage());
    }
    // A target that does not exist fails the connect and every statement.
    target(db.name());
    EXPECT_FALSE(conn->connect("no_such_target", "velm", "secret"));
    EXPECT_TRUE(contains(conn->getErrorMessage(), backend.unknownTargetText)) << conn->getErrorMessage();
    EXPECT_FALSE(conn->execute("SELECT 1", result));
    EXPECT_EQ(backend.afterFailedConnect, conn->getErrorMessage());
}

TEST_P(Conformance, ConnectAndSelectGiveEveryColumnAsTextAndNullAsEmptyText) {
    TraceCapture capture({"DatabaseConnection", "QueryResult"});
    connect(db.name());
    EXPECT_TRUE(conn->active());
    for (const std::string& line : backend.connectTraces)
        EXPECT_TRUE(capture.contains("DatabaseConnection", substitute(line, "{db}", db.name()))) << line;
    QueryResultPtr empty;
    ASSERT_TRUE(conn->execute("SELECT id, name FROM item", empty)) << conn->getErrorMessage();
    EXPECT_FALSE(empty.failed());
    EXPECT_EQ(0, empty.rows());
    EXPECT_EQ(2, empty.columns());
    EXPECT_STREQ(backend.missingRow, empty.getValue(0, 0));

    db.admin().exec("INSERT INTO item (id, name, note) VALUES (1, 'first', NULL), (2, NULL, 'second note')");
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("SELECT id, name, note FROM item ORDER BY id", result)) << conn->getErrorMessage();
    EXPECT_FALSE(result.failed());
    ASSERT_EQ(2, result.rows());
    ASSERT_EQ(3, result.columns());
    EXPECT_STREQ("id", result.getColumnName(0));
    EXPECT_STREQ("note", result.getColumnName(2));
    EXPECT_EQ(nullptr, result.getColumnName(3));
    EXPECT_EQ(nullptr, result.getColumnName(-1));
    const char* const expected[2][3] = {{"1", "first", ""}, {"2", "", "second note"}};
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < 3; ++column)
            EXPECT_STREQ(expected[row][column], result.getValue(row, column)) << row << "," << column;
    EXPECT_EQ(nullptr, result.getValue(0, 3));
    EXPECT_EQ(nullptr, result.getValue(0, -1));
    EXPECT_STREQ(backend.missingRow, result.getValue(-1, 0));
    EXPECT_STREQ(backend.missingRow, result.getValue(3, 0));
    std::string name;
    EXPECT_EQ(backend.successCode, result.getErrorCode(name));
    EXPECT_EQ(backend.successName, name);
    EXPECT_EQ(substitute(backend.selectMessage, "{sql}", "SELECT id, name, note FROM item ORDER BY id"),
              result.getErrorMessage());
    // ODBC binds the columns of each row it fetches, and none past them.
    EXPECT_EQ(backend.dataSource, capture.contains("QueryResult", "binding column 3"));
    EXPECT_FALSE(capture.contains("QueryResult", "binding column 4"));

    // A result handle used again shows only the new statement's rows.
    ASSERT_TRUE(conn->execute("SELECT note FROM item WHERE id = 2", result)) << conn->getErrorMessage();
    EXPECT_EQ(1, result.rows());
    EXPECT_STREQ("second note", result.getValue(0, 0));
    EXPECT_EQ(nullptr, result.getColumnName(1));
    EXPECT_STREQ(backend.missingRow, result.getValue(2, 0));
}

// Successes and failures in turn: each failure leaves the connection usable,
// and the next success clears its text.
TEST_P(Conformance, StatementsReportTheirCountOrWhyTheyFailed) {
    connect(db.name());
    db.admin().exec("INSERT INTO item (id, attempt) VALUES (1, 0)");
    const struct {
        const char* sql;
        int count;
        const char* sqlState = nullptr; // null for a success
        const char* text = nullptr;
    } statements[] = {
        {"INSERT INTO item (id) VALUES (2), (3), (4)", 3},
        {"INSERT INTO item (id) VALUES (1)", 0, "23505", "duplicate key value violates unique constraint"},
        {"UPDATE item SET note = 'seen' WHERE id < 3", 2},
        {"INSERT INTO item (id) VALUES (NULL)", 0, "23502", "violates not-null constraint"},
        {"DELETE FROM item WHERE id > 10", 0},
        {"SELECT no_such_column FROM item", 0, "42703", "column \"no_such_column\" does not exist"},
        {"DELETE FROM item WHERE id = 4", 1},
        {"SELECT * FROM nosuch", 0, "42P01", "relation \"nosuch\" does not exist"},
        {"SELECT note FROM item WHERE id = 'one'", 0, "22P02", "invalid input syntax for type integer"},
        {"", 0, "00000", ""},
        {"DELETE FROM item WHERE id = 3", 1},
    };
    for (const auto& statement : statements) {
        QueryResultPtr result;
        const bool reached = conn->execute(statement.sql, result);
        if (statement.sqlState == nullptr) {
            ASSERT_TRUE(reached) << conn->getErrorMessage();
            EXPECT_EQ("", conn->getErrorMessage());
            EXPECT_FALSE(result.failed()) << statement.sql;
            EXPECT_EQ(statement.count, result.updateCount()) << statement.sql;
            continue;
        }
        EXPECT_EQ(backend.failuresInResult, reached) << statement.sql;
        EXPECT_TRUE(result.failed()) << statement.sql;
        const std::string text = backend.failuresInResult ? result.getErrorMessage() : conn->getErrorMessage();
        EXPECT_TRUE(contains(text, statement.text)) << text;
        const std::string state = backend.failuresInResult ? statement.sqlState : "00000";
        EXPECT_EQ(state, result.getSqlState());
        const std::string where = ", sqlState=" + state + ", sqlcommand=" + statement.sql;
        EXPECT_EQ(backend.failuresInResult, contains(result.getErrorMessage(), where)) << result.getErrorMessage();
        if (auto* pgsql = dynamic_cast<const velm::QueryResultPgsql*>(result.m_qres)) {
            EXPECT_EQ(state.compare(0, 2, "23") == 0, pgsql->integrityConstraintViolation()) << statement.sql;
        }
    }
    EXPECT_EQ("1 2", db.admin().value("SELECT string_agg(id::text, ' ' ORDER BY id) FROM item WHERE note = 'seen'"));
    EXPECT_EQ("2", db.admin().value("SELECT count(*) FROM item"));
    // The first insert took three numbers, each attempt of the two failing ones one more.
    EXPECT_EQ(std::to_string(3 + 2 * backend.attemptsOfAFailure), db.admin().value("SELECT last_value FROM attempts"));
}

TEST_P(Conformance, WarningsGoToTheErrorTextOrTheTrace) {
    connect(db.name());
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    const char* sql = "DO $$ BEGIN INSERT INTO item (id, name) VALUES (5, 'warned'); RAISE WARNING 'careful'; END $$";
    EXPECT_EQ(!backend.warningFails, conn->execute(sql, result));
    EXPECT_EQ(backend.warningFails, result.failed());
    EXPECT_EQ(backend.warningFails, contains(conn->getErrorMessage(), "careful")) << conn->getErrorMessage();
    EXPECT_EQ(!backend.warningFails, capture.contains("DatabaseConnection", "libpq MESSAGE: WARNING:  careful\n"));
    // It ran all the same.
    EXPECT_EQ("warned", db.admin().value("SELECT name FROM item WHERE id = 5"));
}

TEST_P(Conformance, KilledSessionIsSetUpAgainAndTheStatementRunsOnce) {
    connect(db.name());
    const int pid = backendPid();
    endSession(db.admin(), pid);
    TraceCapture capture({"DatabaseConnection"});
    for (int lost = 0; lost < backend.statementsLostWithSession; ++lost) {
        QueryResultPtr result;
        EXPECT_FALSE(conn->execute("SELECT 1", result));
        EXPECT_TRUE(contains(conn->getErrorMessage(), "terminating connection due to administrator command"))
            << conn->getErrorMessage();
        EXPECT_TRUE(result.failed());
    }
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("INSERT INTO item (id, note) VALUES (7, 'again')", result)) << conn->getErrorMessage();
    EXPECT_FALSE(result.failed()) << result.getErrorMessage();
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM item WHERE id = 7"));
    const auto& traces = backend.reconnectTraces;
    EXPECT_TRUE(std::any_of(traces.begin(), traces.end(),
                            [&](const std::string& line) { return capture.contains("DatabaseConnection", line); }));
    EXPECT_NE(pid, backendPid());
}

TEST_P(Conformance, ClosedConnectionIsClosedForGoodOrReconnectsOnUse) {
    connect(db.name());
    const int pid = backendPid();
    conn->close();
    conn->close();
    EXPECT_EQ(backend.alwaysActive, conn->active());
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    EXPECT_EQ(backend.closedReconnects, conn->execute("SELECT pg_backend_pid()", result));
    if (backend.closedReconnects) {
        EXPECT_NE(pid, std::atoi(result.getValue(0, 0)));
        EXPECT_TRUE(capture.contains("DatabaseConnection", "trying to re-establish connection"));
        EXPECT_TRUE(capture.contains("DatabaseConnection", "reconnected"));
    } else {
        EXPECT_EQ("no connection", conn->getErrorMessage());
    }
}

TEST_P(Conformance, StatementsFailWhileTheServerIsGone) {
    velmtest::ScratchServer scratch;
    connect("postgres", scratch.port());
    AdminConnection admin("postgres", scratch.port());
    endSession(admin, backendPid());
    scratch.stop();
    for (size_t attempt = 0; attempt < backend.afterServerStops.size(); ++attempt) {
        QueryResultPtr result;
        // Without literals, so that the prepared path runs it as written too.
        EXPECT_FALSE(conn->execute("SELECT current_user", result));
        EXPECT_TRUE(contains(conn->getErrorMessage(), backend.afterServerStops[attempt])) << conn->getErrorMessage();
        // The first statement meets the ended session and gets its failed result.
        if (attempt == 0) {
            EXPECT_TRUE(result.failed());
        }
    }
    EXPECT_EQ(backend.alwaysActive, conn->active());
}

const Backend pgsql{"Pgsql", "pgsql", false, false, true, 2, nullptr, false, false, false, false, 0,
                    2, "PGRES_TUPLES_OK", ", sqlState=00000, sqlcommand={sql}",
                    "no_such_target", "fatal error, query failed",
                    {"host=, db={db}, port=", "dbname={db} user=velm password=secret"},
                    {"fatal query error: retrying connection", "fatal error, retrying after: PGRES_FATAL_ERROR"},
                    {"fatal query error, connection reset failed", "fatal error, query failed"}};

// The same backend through the prepared path behaves the same.
Backend prepared(Backend backend) {
    backend.name = "PgsqlPrepared";
    backend.prepared = true;
    return backend;
}

const Backend odbc{"Odbc", "odbc", false, true, false, 1, "", true, true, true, true, 1,
                   0, "SQL_SUCCESS", "Unknown ODBC statement error",
                   "Data source name not found", "Failed to re-connect to database",
                   {"connecting with 'DSN=velmtest;UID=velm;PWD=secret'", "Executing query: \nSET CATALOG tarn_admin\n",
                    "execute FAILED"},
                   {"communication error, will retry connection"},
                   {"terminating connection due to administrator command", "No connection",
                    "Failed to re-connect to database"}};

INSTANTIATE_TEST_SUITE_P(Backends, Conformance, testing::Values(pgsql, prepared(pgsql), odbc),
                         [](const testing::TestParamInfo<Backend>& info) { return std::string(info.param.name); });

// libpq's part: a postgresql:// URL gives host, port and database, a plain
// name is the database. A URI with several hosts or parameters and a
// keyword/value string reach libpq whole: the first host (port 1) is dead, so
// only a kept host list connects, and only the user given apart overrides
// the location's "nobody", who has no role.
TEST(PgsqlConnect, DatabaseArgumentBecomesTheConnectionString) {
    TestDatabase db;
    const std::string port = velmtest::server().port, socket = velmtest::server().host;
    const char* const forms[][3] = {
        {"postgresql://:{port}/{db}", "host=, db={db}, port={port}", "port={port} dbname={db} user=velm password=pw"},
        {"postgresql:///{db}", "host=, db={db}, port=", "dbname={db} user=velm password=pw"},
        {"{db}", "host=, db={db}, port=", "dbname={db} user=velm password=pw"},
        {"postgresql://nobody@{sock}:1,{sock}:{port}/{db}?connect_timeout=2", "location for libpq: {location}, user=velm"},
        {"host={socket},{socket} port=1,{port} user=nobody dbname={db}", "location for libpq: {location}, user=velm"}};
    for (const auto& form : forms) {
        auto text = [&](const char* pattern) {
            std::string filled = substitute(pattern, "{location}", form[0]);
            filled = substitute(substitute(filled, "{db}", db.name()), "{port}", port);
            return substitute(substitute(filled, "{sock}", substitute(socket, "/", "%2F")), "{socket}", socket);
        };
        TraceCapture capture({"DatabaseConnection"});
        Connection conn(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
        ASSERT_TRUE(conn->connect(text(form[0]).c_str(), "velm", "pw")) << conn->getErrorMessage();
        for (const char* trace : {form[1], form[2]})
            EXPECT_TRUE(trace == nullptr || capture.contains("DatabaseConnection", text(trace))) << text(trace);
    }
}

// Locations libpq refuses fail the connect with its reason, and so does a
// read-write location whose only server is read-only; a session open before
// that meets it at its next write (SQLSTATE 25006), whose reset is refused.
TEST(PgsqlConnect, RefusedLocationsAndAReadOnlyServerFailWithLibpqsReason) {
    TestDatabase db;
    const std::string readWrite = "host=" + velmtest::server().host + " port=" + velmtest::server().port +
                                  " dbname=" + db.name() + " target_session_attrs=read-write";
    Connection open(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
    ASSERT_TRUE(open->connect(readWrite.c_str(), "velm", "")) << open->getErrorMessage();
    db.admin().exec("ALTER DATABASE " + db.name() + " SET default_transaction_read_only = on");
    const std::pair<std::string, const char*> refused[] = {
        {"postgresql://a,b/velm?no_such_parameter=1", "invalid URI query parameter: \"no_such_parameter\""},
        {"host=a,b port=1,2,3 dbname=velm", "could not match 3 port numbers to 2 hosts"},
        {readWrite, "session is read-only"}};
    for (const auto& [location, reason] : refused) {
        Connection conn(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
        EXPECT_FALSE(conn->connect(location.c_str(), "velm", ""));
        EXPECT_TRUE(contains(conn->getErrorMessage(), reason)) << conn->getErrorMessage();
    }
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    ASSERT_TRUE(open->execute("SET default_transaction_read_only = on", result));
    EXPECT_FALSE(open->execute("CREATE TABLE written (id int)", result));
    EXPECT_EQ("25006", result.getSqlState());
    EXPECT_EQ("fatal query error, connection reset failed", open->getErrorMessage());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "fatal error, retrying after: PGRES_FATAL_ERROR"));
    EXPECT_FALSE(open->active());
}

// Results follow [SipServer] DatabaseType (here with whether it asks for ODBC),
// read once per process at the first result; connections stay PostgreSQL
// whatever it says. Each case is its own process, so it reads what it set.
using Choice = std::pair<const char*, bool>;

class ResultFactory : public testing::TestWithParam<Choice> {};

TEST_P(ResultFactory, ResultsFollowTheTypeAndConnectionsStayPostgres) {
    velm::AppProperties::set("SipServer", "DatabaseType", GetParam().first);
    QueryResultPtr result;
    EXPECT_EQ(GetParam().second, dynamic_cast<velm::QueryResultOdbc*>(result.m_qres) != nullptr);
    // The choice is made once.
    velm::AppProperties::set("SipServer", "DatabaseType", GetParam().second ? "pgsql" : "odbc");
    QueryResultPtr later;
    EXPECT_EQ(GetParam().second, dynamic_cast<velm::QueryResultOdbc*>(later.m_qres) != nullptr);

    velm::AppProperties::set("SipServer", "DatabaseType", GetParam().first);
    Connection conn(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
    EXPECT_NE(nullptr, dynamic_cast<velm::DatabaseConnectionPgsql*>(conn.get()));
    EXPECT_EQ(!GetParam().second, DatabaseConnection::m_useNative.load());
}

INSTANTIATE_TEST_SUITE_P(Types, ResultFactory,
                         testing::Values(Choice{"odbc", true}, Choice{"ODBC", true}, Choice{"Odbc", true},
                                         Choice{nullptr, false}, Choice{"", false}, Choice{"odbc3", false}));

// The first results, connections and ODBC connects of threads starting at once.
TEST(BackendConcurrency, ThreadsStartingAtOnceShareTheChoiceAndTheOdbcEnvironment) {
    velm::AppProperties::set("SipServer", "DatabaseType", "odbc");
    TestDatabase db;
    OdbcDataSource source(db.name());
    constexpr int threads = 6;
    std::atomic<int> ready{0};
    std::atomic<int> odbcResults{0};
    std::vector<int> pids(threads, 0);
    std::vector<std::thread> workers;
    for (int i = 0; i < threads; ++i)
        workers.emplace_back([&, i] {
            ++ready;
            while (ready.load() < threads)
                std::this_thread::yield();
            QueryResultPtr result;
            odbcResults += dynamic_cast<velm::QueryResultOdbc*>(result.m_qres) != nullptr;
            DatabaseConnection::releaseConnection(DatabaseConnection::getConnection());
            DatabaseConnectionOdbc conn;
            if (conn.connect(source.name().c_str(), "velm", "secret") &&
                conn.execute("SELECT pg_backend_pid()", result))
                pids[i] = std::atoi(result.getValue(0, 0));
        });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(threads, odbcResults.load());
    EXPECT_FALSE(DatabaseConnection::m_useNative);
    EXPECT_EQ(static_cast<size_t>(threads), std::set<int>(pids.begin(), pids.end()).size());
    EXPECT_EQ(0, std::count(pids.begin(), pids.end(), 0));
}

// Statements in order on one prepared-path session, each with its first value, then
// what the session prepared. The rest of the path is the conformance's PgsqlPrepared.
TEST(PreparedStatements, EachShapeIsPreparedOncePerSessionAndRefusedShapesRunAsWritten) {
    velm::AppProperties::set("Database", "PreparedStatements", "True");
    TestDatabase db;
    db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, note text)");
    Connection conn(DatabaseConnection::getConnection(), &DatabaseConnection::releaseConnection);
    ASSERT_TRUE(conn->connect(db.name().c_str(), "velm", "")) << conn->getErrorMessage();
    TraceCapture capture({"DatabaseConnection"});
    const struct {
        const char* sql;
        const char* value;
    } steps[] = {
        {"INSERT INTO item VALUES (1, 'it''s 1') RETURNING 1", "1"},
        {"INSERT INTO item VALUES (2, 'it''s 2') RETURNING 1", "1"},
        {"SELECT note FROM item WHERE id = 2", "it's 2"},
        {"SELECT note FROM item WHERE id = 9", nullptr},
        {"SELECT id FROM item WHERE note LIKE 'it%' ORDER BY 1 DESC", "2"},
        {"BEGIN", nullptr},
        {"INSERT INTO item VALUES (3, 'a') RETURNING id", "3"},
        // A typed literal has no parameter form: the shape is refused, the transaction goes on.
        {"SELECT date '2020-01-02' + 1", "2020-01-03"},
        {"SELECT date '2020-01-02' + 2", "2020-01-04"},
        {"INSERT INTO item VALUES (4, 'b') RETURNING id", "4"},
        {"COMMIT", nullptr},
    };
    for (const auto& step : steps) {
        QueryResultPtr result;
        EXPECT_TRUE(conn->execute(step.sql, result)) << conn->getErrorMessage();
        EXPECT_FALSE(result.failed()) << result.getErrorMessage();
        EXPECT_STREQ(step.value, result.getValue(0, 0)) << step.sql;
    }
    EXPECT_EQ("4", db.admin().value("SELECT count(*) FROM item"));
    // The trace shows the statement as written, not its shape.
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \nSELECT note FROM item WHERE id = 9\n"));
    QueryResultPtr shapes;
    ASSERT_TRUE(conn->execute(
        "SELECT array_to_string(array_agg(statement ORDER BY statement), E' | ') FROM pg_prepared_statements", shapes));
    EXPECT_STREQ("INSERT INTO item VALUES ($1, $2) RETURNING $3 | INSERT INTO item VALUES ($1, $2) RETURNING id | "
                 "SELECT id FROM item WHERE note LIKE $1 ORDER BY 1 DESC | SELECT note FROM item WHERE id = $1",
                 shapes.getValue(0, 0));
}

const unsigned U = StatementShape::UNTYPED;
const unsigned I4 = StatementShape::INT4;
const unsigned I8 = StatementShape::INT8;

// A statement, and the text and parameters of its shape; without a text it
// has no shape and runs as written.
struct Lifted {
    const char* sql;
    const char* text = nullptr;
    std::vector<std::string> values = {};
    std::vector<unsigned> types = {};
    bool standardStrings = true;
};

void PrintTo(const Lifted& lifted, std::ostream* out) { *out << (lifted.sql != nullptr ? lifted.sql : "(null)"); }

class StatementShapes : public testing::TestWithParam<Lifted> {};

TEST_P(StatementShapes, LiftTheLiteralsOfCandidates) {
    const Lifted& lifted = GetParam();
    StatementShape shape;
    ASSERT_EQ(lifted.text != nullptr, StatementShape::of(lifted.sql, lifted.standardStrings, shape));
    if (lifted.text != nullptr) {
        EXPECT_EQ(lifted.text, shape.text);
        EXPECT_EQ(lifted.values, shape.values);
        EXPECT_EQ(lifted.types, shape.types);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Statements, StatementShapes,
    testing::Values(
        Lifted{"SELECT * FROM t WHERE a = 'x' AND b = 42; ", "SELECT * FROM t WHERE a = $1 AND b = $2", {"x", "42"}, {U, I4}},
        Lifted{"UPDATE t SET n = 'O''Brien', s = '' WHERE id = 3000000000", "UPDATE t SET n = $1, s = $2 WHERE id = $3",
               {"O'Brien", "", "3000000000"}, {U, U, I8}},
        Lifted{"INSERT INTO t (a) VALUES ('back\\slash')", "INSERT INTO t (a) VALUES ($1)", {"back\\slash"}, {U}},
        // Decimals, prefixed strings, dollar quotes and identifiers keep their text.
        Lifted{"SELECT 1.5, .5, 2e-3, E'\\'x', B'101', U&'d\\0061', $q$it's$q$, t1.c2, \"col'9\" FROM t1 WHERE k = 7",
               "SELECT 1.5, .5, 2e-3, E'\\'x', B'101', U&'d\\0061', $q$it's$q$, t1.c2, \"col'9\" FROM t1 WHERE k = $1",
               {"7"}, {I4}},
        Lifted{"SELECT -- it's 5\n a /* nested /* 'x' */ 6 */ FROM t WHERE b = -8", "SELECT -- it's 5\n a /* nested /* 'x' */ 6 */ FROM t WHERE b = -$1",
               {"8"}, {I4}},
        Lifted{"SELECT 5and FROM t WHERE b = 'y'", "SELECT 5and FROM t WHERE b = $1", {"y"}, {U}},
        Lifted{"SELECT 99999999999999999999, 'a' FROM t", "SELECT 99999999999999999999, $1 FROM t", {"a"}, {U}},
        // Column positions of ORDER BY and GROUP BY are not values.
        Lifted{"SELECT a, count(*) FROM t WHERE b = 2 GROUP BY 1 ORDER BY 2 DESC, coalesce(a, 0) LIMIT 10",
               "SELECT a, count(*) FROM t WHERE b = $1 GROUP BY 1 ORDER BY 2 DESC, coalesce(a, 0) LIMIT $2", {"2", "10"}, {I4, I4}},
        Lifted{"SELECT (SELECT x FROM u ORDER BY 1) FROM t WHERE y = 3", "SELECT (SELECT x FROM u ORDER BY 1) FROM t WHERE y = $1",
               {"3"}, {I4}},
        Lifted{"WITH s AS (SELECT 1) SELECT * FROM s", "WITH s AS (SELECT $1) SELECT * FROM s", {"1"}, {I4}},
        // Where strings are not standard a backslash may escape a quote: such a string is not lifted.
        Lifted{"SELECT * FROM t WHERE a = 'x\\'y'", nullptr, {}, {}, false},
        Lifted{"SELECT * FROM t WHERE a = 'plain'", "SELECT * FROM t WHERE a = $1", {"plain"}, {U}, false},
        // Transactions, several statements, commands and what cannot be parsed.
        Lifted{"BEGIN TRANSACTION; UPDATE t SET a = 1; COMMIT;"}, Lifted{"UPDATE t SET a = 1; SELECT 2"},
        Lifted{"ROLLBACK"}, Lifted{"COMMIT"}, Lifted{"SAVEPOINT s1"}, Lifted{"LOCK TABLE t"},
        Lifted{"SET search_path = 'x'"}, Lifted{"CREATE TABLE t (c varchar(20) DEFAULT 'x')"},
        Lifted{"SELECT now() FROM t"}, Lifted{"SELECT a FROM t ORDER BY 1"}, Lifted{"SELECT $1"},
        Lifted{"SELECT 'unterminated"}, Lifted{"SELECT 1 /* open"}, Lifted{"SELECT $tag$ open"}, Lifted{""},
        Lifted{"   ;  "}, Lifted{nullptr}));

} // namespace
