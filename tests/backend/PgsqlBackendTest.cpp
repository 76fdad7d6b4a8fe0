// The PostgreSQL backend against the run's private server: connecting, reading
// results, and the one reset-and-retry of execute().
#include "DatabaseConnection.h"
#include "QueryResultPgsql.h"
#include "QueryResultPtr.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

using velm::DatabaseConnection;
using velm::QueryResultPgsql;
using velm::QueryResultPtr;
using velmtest::TestDatabase;
using velmtest::TraceCapture;

namespace {

struct ConnectionDeleter {
    void operator()(DatabaseConnection* conn) const { DatabaseConnection::releaseConnection(conn); }
};
using Connection = std::unique_ptr<DatabaseConnection, ConnectionDeleter>;

Connection newConnection() {
    return Connection(DatabaseConnection::getConnection());
}

const QueryResultPgsql& pgsql(const QueryResultPtr& result) {
    return dynamic_cast<const QueryResultPgsql&>(*result.m_qres);
}

int backendPid(DatabaseConnection& conn) {
    QueryResultPtr result;
    EXPECT_TRUE(conn.execute("SELECT pg_backend_pid()", result));
    return std::atoi(result.getValue(0, 0));
}

class PgsqlBackend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(conn->connect(db.name().c_str(), "velm", "secret")) << conn->getErrorMessage();
        db.admin().exec("CREATE SEQUENCE attempts");
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, attempt bigint DEFAULT nextval('attempts'), note text)");
    }

    TestDatabase db;
    Connection conn = newConnection();
};

} // namespace

TEST(PgsqlResult, EmptyHandleReadsAsNothingExecuted) {
    QueryResultPtr result;
    EXPECT_EQ(0, result.rows());
    EXPECT_EQ(0, result.columns());
    EXPECT_EQ(0, result.updateCount());
    EXPECT_FALSE(result.failed());
    EXPECT_EQ(nullptr, result.getValue(0, 0));
    EXPECT_EQ(nullptr, result.getColumnName(0));
    EXPECT_EQ("00000", result.getSqlState());
    std::string name;
    EXPECT_EQ(-1, result.getErrorCode(name));
    EXPECT_EQ("NO QUERY EXECUTED", name);
    result.setSqlCommand("SELECT 1");
    EXPECT_EQ(", sqlState=00000, sqlcommand=SELECT 1", result.getErrorMessage());
}

TEST(PgsqlConnect, MissingParametersNeverReachLibpq) {
    Connection conn = newConnection();
    EXPECT_FALSE(conn->connect(nullptr, "velm", "pw"));
    EXPECT_EQ("missing connection parameters", conn->getErrorMessage());
    EXPECT_FALSE(conn->connect("db", nullptr, "pw"));
    EXPECT_FALSE(conn->connect("db", "velm", nullptr));
    EXPECT_EQ("missing connection parameters", conn->getErrorMessage());
    EXPECT_FALSE(conn->active());
    EXPECT_EQ("no connection", conn->getErrorMessage());
    EXPECT_FALSE(conn->reset());
    EXPECT_EQ("no connection to reset", conn->getErrorMessage());
    QueryResultPtr result;
    EXPECT_FALSE(conn->execute("SELECT 1", result));
    EXPECT_EQ("no connection", conn->getErrorMessage());
}

TEST(PgsqlConnect, UnknownDatabaseFailsWithTheServersText) {
    velmtest::server();
    Connection conn = newConnection();
    EXPECT_FALSE(conn->connect("no_such_database", "velm", "pw"));
    EXPECT_NE(std::string::npos, conn->getErrorMessage().find("no_such_database")) << conn->getErrorMessage();
    EXPECT_FALSE(conn->active());
    conn->close();
    conn->close();
}

TEST(PgsqlConnect, UrlGivesHostPortAndDatabaseItemsAndOnlyAPortGivesAPortItem) {
    TestDatabase db;
    TraceCapture capture({"DatabaseConnection"});
    std::string port = velmtest::server().port;
    Connection conn = newConnection();
    std::string url = "postgresql://:" + port + "/" + db.name();
    ASSERT_TRUE(conn->connect(url.c_str(), "velm", "pw")) << conn->getErrorMessage();
    EXPECT_TRUE(conn->active());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "host=, db=" + db.name() + ", port=" + port));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "port=" + port + " dbname=" + db.name() + " user=velm password=pw"));

    Connection plain = newConnection();
    ASSERT_TRUE(plain->connect(db.name().c_str(), "velm", "pw"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "dbname=" + db.name() + " user=velm password=pw"));

    Connection portless = newConnection();
    ASSERT_TRUE(portless->connect(("postgresql:///" + db.name()).c_str(), "velm", "pw")) << portless->getErrorMessage();
    EXPECT_TRUE(capture.contains("DatabaseConnection", "host=, db=" + db.name() + ", port="));
}

TEST_F(PgsqlBackend, SelectGivesRowsColumnsAndNullAsEmptyText) {
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("SELECT 1 AS one, NULL::text AS nothing, 'x' AS ex UNION ALL SELECT 2, 'y', NULL", result));
    ASSERT_FALSE(result.failed());
    EXPECT_EQ(2, result.rows());
    EXPECT_EQ(3, result.columns());
    EXPECT_STREQ("one", result.getColumnName(0));
    EXPECT_STREQ("ex", result.getColumnName(2));
    EXPECT_EQ(nullptr, result.getColumnName(3));
    EXPECT_EQ(nullptr, result.getColumnName(-1));
    EXPECT_STREQ("1", result.getValue(0, 0));
    EXPECT_STREQ("", result.getValue(0, 1));
    EXPECT_STREQ("y", result.getValue(1, 1));
    EXPECT_EQ(nullptr, result.getValue(2, 0));
    EXPECT_EQ(nullptr, result.getValue(0, 3));
    EXPECT_EQ(nullptr, result.getValue(-1, 0));
    EXPECT_EQ("SELECT 1 AS one, NULL::text AS nothing, 'x' AS ex UNION ALL SELECT 2, 'y', NULL", result.getSqlCommand());
    std::string name;
    EXPECT_EQ(2, result.getErrorCode(name));
    EXPECT_EQ("PGRES_TUPLES_OK", name);
}

TEST_F(PgsqlBackend, EmptySelectIsNoFailureAndUpdateCountComesFromTheCommandTag) {
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("SELECT id FROM item", result));
    EXPECT_FALSE(result.failed());
    EXPECT_EQ(0, result.rows());
    EXPECT_EQ(1, result.columns());
    EXPECT_EQ(nullptr, result.getValue(0, 0));
    ASSERT_TRUE(conn->execute("INSERT INTO item (id) VALUES (1), (2), (3)", result));
    EXPECT_EQ(3, result.updateCount());
    ASSERT_TRUE(conn->execute("UPDATE item SET note = 'n' WHERE id > 1", result));
    EXPECT_EQ(2, result.updateCount());
    ASSERT_TRUE(conn->execute("CREATE TABLE other (x int)", result));
    EXPECT_FALSE(result.failed());
    EXPECT_EQ(0, result.updateCount());
}

TEST_F(PgsqlBackend, EmptyStatementFailsWithoutRetry) {
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("", result));
    EXPECT_TRUE(result.failed());
    std::string name;
    EXPECT_EQ(0, result.getErrorCode(name));
    EXPECT_EQ("PGRES_EMPTY_QUERY", name);
    for (const auto& line : capture.lines("DatabaseConnection"))
        EXPECT_EQ(std::string::npos, line.find("retrying")) << line;
}

TEST_F(PgsqlBackend, UniqueViolationReachesTheServerTwice) {
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("INSERT INTO item (id) VALUES (1)", result));
    ASSERT_FALSE(result.failed());
    ASSERT_EQ("1", db.admin().value("SELECT last_value FROM attempts"));

    TraceCapture capture({"DatabaseConnection"});
    EXPECT_TRUE(conn->execute("INSERT INTO item (id) VALUES (1)", result));
    EXPECT_EQ("", conn->getErrorMessage());
    EXPECT_TRUE(result.failed());
    EXPECT_EQ("23505", result.getSqlState());
    EXPECT_TRUE(pgsql(result).integrityConstraintViolation());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find(", sqlState=23505, sqlcommand=INSERT INTO item (id) VALUES (1)"));
    // The default took a number on each of the two attempts.
    EXPECT_EQ("3", db.admin().value("SELECT last_value FROM attempts"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "fatal error, retrying after: PGRES_FATAL_ERROR"));
    // The reset gave a working session.
    EXPECT_TRUE(conn->active());
}

TEST_F(PgsqlBackend, OtherIntegrityViolationsAreClass23Too) {
    QueryResultPtr result;
    conn->execute("INSERT INTO item (id) VALUES (NULL)", result);
    EXPECT_EQ("23502", result.getSqlState());
    EXPECT_TRUE(pgsql(result).integrityConstraintViolation());
    conn->execute("SELECT no_such_column FROM item", result);
    EXPECT_EQ("42703", result.getSqlState());
    EXPECT_FALSE(pgsql(result).integrityConstraintViolation());
}

TEST_F(PgsqlBackend, KilledBackendIsResetAndTheStatementRunsOnce) {
    db.terminateBackend(backendPid(*conn));
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("INSERT INTO item (id, note) VALUES (7, 'after reset')", result)) << conn->getErrorMessage();
    EXPECT_FALSE(result.failed()) << result.getErrorMessage();
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM item WHERE id = 7"));
    // libpq reports the lost session either as no result or as a fatal result.
    bool retried = capture.contains("DatabaseConnection", "fatal query error: retrying connection") ||
                   capture.contains("DatabaseConnection", "fatal error, retrying after: PGRES_FATAL_ERROR");
    EXPECT_TRUE(retried);
    EXPECT_NE(0, backendPid(*conn));
}

TEST(PgsqlServerGone, ExecuteFailsWhenTheServerCannotBeReached) {
    velmtest::ScratchServer scratch;
    Connection conn = newConnection();
    ASSERT_TRUE(conn->connect(scratch.database().c_str(), "velm", "pw")) << conn->getErrorMessage();
    scratch.stop();

    QueryResultPtr result;
    // The first attempt finds the session closed: a fatal result whose reset fails.
    EXPECT_FALSE(conn->execute("SELECT 1", result));
    EXPECT_EQ("fatal query error, connection reset failed", conn->getErrorMessage());
    EXPECT_TRUE(result.failed());
    EXPECT_FALSE(conn->active());
    // From then on libpq gives no result at all, and the reset fails again.
    QueryResultPtr second;
    EXPECT_FALSE(conn->execute("SELECT 1", second));
    EXPECT_EQ("fatal error, query failed", conn->getErrorMessage());
}

TEST_F(PgsqlBackend, ServerNoticesGoToTheTraceNotTheErrorText) {
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("DO $$ BEGIN RAISE NOTICE 'hello from the server'; END $$", result));
    EXPECT_FALSE(result.failed());
    EXPECT_EQ("", conn->getErrorMessage());
    bool traced = false;
    for (const auto& line : capture.lines("DatabaseConnection"))
        traced = traced || line.find("libpq MESSAGE: NOTICE:  hello from the server") == 0;
    EXPECT_TRUE(traced);
}
