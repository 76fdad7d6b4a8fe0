// The ODBC backend through unixODBC and the psqlODBC driver, against a data
// source for the run's private server: connecting, reading results as text,
// failures, and what happens when the server connection is lost.
#include "AppProperties.h"
#include "DatabaseConnectionOdbc.h"
#include "OdbcDataSource.h"
#include "QueryResultPtr.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using velm::DatabaseConnectionOdbc;
using velm::QueryResultPtr;
using velmtest::OdbcDataSource;
using velmtest::TestDatabase;
using velmtest::TraceCapture;

namespace {

// Results must be ODBC results before the first one of the process is made.
struct OdbcResults {
    OdbcResults() { velm::AppProperties::set("SipServer", "DatabaseType", "odbc"); }
};

int backendPid(DatabaseConnectionOdbc& conn) {
    QueryResultPtr result;
    EXPECT_TRUE(conn.execute("SELECT pg_backend_pid()", result)) << conn.getErrorMessage();
    return std::atoi(result.getValue(0, 0));
}

// pg_terminate_backend only signals the session; wait until it has ended so
// that the next statement meets the ended session, not a live one.
void terminate(TestDatabase& db, int pid) {
    db.terminateBackend(pid);
    const std::string stillThere = "SELECT count(*) FROM pg_stat_activity WHERE pid = " + std::to_string(pid);
    for (int attempt = 0; attempt < 500 && db.admin().value(stillThere) != "0"; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ("0", db.admin().value(stillThere));
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class OdbcBackend : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(conn.connect(source.name().c_str(), "velm", "secret")) << conn.getErrorMessage();
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, name varchar(20), note text)");
    }

    OdbcResults odbcResults;
    TestDatabase db;
    OdbcDataSource source{db.name()};
    DatabaseConnectionOdbc conn;
};

} // namespace

TEST(OdbcConnect, MissingParametersFailAndLeaveNothingToReconnectTo) {
    OdbcResults odbcResults;
    DatabaseConnectionOdbc conn;
    EXPECT_FALSE(conn.connect(nullptr, "velm", "secret"));
    EXPECT_EQ("missing connection parameters", conn.getErrorMessage());
    EXPECT_FALSE(conn.connect("velmtest", nullptr, "secret"));
    EXPECT_FALSE(conn.connect("velmtest", "velm", nullptr));
    EXPECT_EQ("missing connection parameters", conn.getErrorMessage());

    QueryResultPtr result;
    EXPECT_FALSE(conn.execute("SELECT 1", result));
    EXPECT_EQ("no connection", conn.getErrorMessage());
    EXPECT_TRUE(result.failed());
}

TEST(OdbcConnect, UnknownDataSourceFailsWithTheDriverManagersText) {
    OdbcResults odbcResults;
    TestDatabase db;
    OdbcDataSource source(db.name());
    DatabaseConnectionOdbc conn;
    EXPECT_FALSE(conn.connect("nosuchsource", "velm", "secret"));
    EXPECT_TRUE(contains(conn.getErrorMessage(), "Data source name not found")) << conn.getErrorMessage();

    // The failed data source is remembered and tried again, in vain.
    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    EXPECT_FALSE(conn.execute("SELECT 1", result));
    EXPECT_EQ("Failed to re-connect to database", conn.getErrorMessage());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "trying to re-establish connection"));
    EXPECT_TRUE(result.failed());
}

TEST(OdbcConnect, RefusedCatalogSwitchDoesNotFailTheConnect) {
    OdbcResults odbcResults;
    TestDatabase db;
    OdbcDataSource source(db.name());
    TraceCapture capture({"DatabaseConnection"});
    DatabaseConnectionOdbc conn;
    ASSERT_TRUE(conn.connect(source.name().c_str(), "velm", "secret")) << conn.getErrorMessage();
    EXPECT_EQ("", conn.getErrorMessage());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \nSET CATALOG tarn_admin\n"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "execute FAILED"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "connecting with 'DSN=velmtest;UID=velm;PWD=secret'"));
}

TEST(OdbcConnect, ThreadsConnectingAtOnceShareOneEnvironment) {
    OdbcResults odbcResults;
    TestDatabase db;
    OdbcDataSource source(db.name());
    const int threadCount = 4;
    std::vector<int> pids(threadCount, 0);
    std::vector<std::string> errors(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            DatabaseConnectionOdbc conn;
            if (!conn.connect(source.name().c_str(), "velm", "secret")) {
                errors[i] = conn.getErrorMessage();
                return;
            }
            QueryResultPtr result;
            if (conn.execute("SELECT pg_backend_pid()", result))
                pids[i] = std::atoi(result.getValue(0, 0));
            else
                errors[i] = conn.getErrorMessage();
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (int i = 0; i < threadCount; ++i) {
        EXPECT_EQ("", errors[i]);
        EXPECT_GT(pids[i], 0);
        for (int j = 0; j < i; ++j)
            EXPECT_NE(pids[i], pids[j]);
    }
}

TEST_F(OdbcBackend, SelectGivesEveryColumnAsTextAndNullAsEmptyText) {
    QueryResultPtr empty;
    ASSERT_TRUE(conn.execute("SELECT id, name FROM item", empty)) << conn.getErrorMessage();
    EXPECT_FALSE(empty.failed());
    EXPECT_EQ(0, empty.rows());
    EXPECT_EQ(2, empty.columns());
    ASSERT_NE(nullptr, empty.getValue(0, 0));
    EXPECT_STREQ("", empty.getValue(0, 0));
    EXPECT_EQ(nullptr, empty.getValue(0, 2));

    db.admin().exec("INSERT INTO item VALUES (1, 'first', NULL), (2, NULL, 'second note')");
    QueryResultPtr result;
    ASSERT_TRUE(conn.execute("SELECT id, name, note, id > 1 AS later FROM item ORDER BY id", result))
        << conn.getErrorMessage();
    EXPECT_EQ("", conn.getErrorMessage());
    EXPECT_FALSE(result.failed());
    EXPECT_EQ(2, result.rows());
    EXPECT_EQ(4, result.columns());
    EXPECT_STREQ("id", result.getColumnName(0));
    EXPECT_STREQ("later", result.getColumnName(3));
    EXPECT_EQ(nullptr, result.getColumnName(4));

    EXPECT_STREQ("1", result.getValue(0, 0));
    EXPECT_STREQ("first", result.getValue(0, 1));
    EXPECT_STREQ("", result.getValue(0, 2));
    EXPECT_STREQ("0", result.getValue(0, 3));
    EXPECT_STREQ("2", result.getValue(1, 0));
    EXPECT_STREQ("", result.getValue(1, 1));
    EXPECT_STREQ("second note", result.getValue(1, 2));
    EXPECT_STREQ("1", result.getValue(1, 3));

    // Past the rows: the row prepared for the fetch that found the end, then nothing.
    EXPECT_STREQ("", result.getValue(2, 0));
    EXPECT_STREQ("", result.getValue(3, 0));
    EXPECT_STREQ("", result.getValue(-1, 0));
    EXPECT_EQ(nullptr, result.getValue(0, 4));
    EXPECT_EQ(nullptr, result.getValue(0, -1));
    EXPECT_EQ("Unknown ODBC statement error", result.getErrorMessage());
}

TEST_F(OdbcBackend, UpdatesReportTheirCountAndTouchingNothingIsNoFailure) {
    db.admin().exec("INSERT INTO item VALUES (1, 'a', NULL), (2, 'b', NULL), (3, 'c', NULL)");
    QueryResultPtr result;
    ASSERT_TRUE(conn.execute("UPDATE item SET note = 'seen' WHERE id < 3", result)) << conn.getErrorMessage();
    EXPECT_FALSE(result.failed());
    EXPECT_EQ(2, result.updateCount());
    EXPECT_EQ(0, result.rows());
    EXPECT_EQ("2", db.admin().value("SELECT count(*) FROM item WHERE note = 'seen'"));

    QueryResultPtr none;
    ASSERT_TRUE(conn.execute("DELETE FROM item WHERE id > 10", none)) << conn.getErrorMessage();
    EXPECT_FALSE(none.failed());
    EXPECT_EQ(0, none.updateCount());
}

TEST_F(OdbcBackend, FailingStatementIsReportedByTheReturnValueWithTheDriversText) {
    QueryResultPtr result;
    EXPECT_FALSE(conn.execute("SELECT * FROM nosuch", result));
    EXPECT_TRUE(contains(conn.getErrorMessage(), "relation \"nosuch\" does not exist")) << conn.getErrorMessage();
    EXPECT_TRUE(result.failed());
    EXPECT_EQ(0, result.rows());
    EXPECT_STREQ("", result.getValue(0, 0));

    // The connection stays usable and a success clears the text.
    QueryResultPtr next;
    ASSERT_TRUE(conn.execute("SELECT 7", next)) << conn.getErrorMessage();
    EXPECT_EQ("", conn.getErrorMessage());
    EXPECT_STREQ("7", next.getValue(0, 0));
}

TEST_F(OdbcBackend, SqlStateStaysSuccessfulSoIntegrityViolationsCannotBeTold) {
    db.admin().exec("INSERT INTO item VALUES (1, 'a', NULL)");
    QueryResultPtr result;
    EXPECT_FALSE(conn.execute("INSERT INTO item VALUES (1, 'again', NULL)", result));
    EXPECT_TRUE(contains(conn.getErrorMessage(), "duplicate key value violates unique constraint"))
        << conn.getErrorMessage();
    EXPECT_EQ("00000", result.getSqlState());
    std::string name;
    EXPECT_EQ(-1, result.getErrorCode(name));
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM item"));

    QueryResultPtr inserted;
    ASSERT_TRUE(conn.execute("INSERT INTO item VALUES (2, 'b', NULL)", inserted)) << conn.getErrorMessage();
    EXPECT_EQ("00000", inserted.getSqlState());
    EXPECT_EQ(0, inserted.getErrorCode(name));
    EXPECT_EQ("SQL_SUCCESS", name);
}

TEST_F(OdbcBackend, StatementThatSucceedsWithAWarningCountsAsFailed) {
    QueryResultPtr result;
    EXPECT_FALSE(conn.execute("DO $$ BEGIN INSERT INTO item VALUES (5, 'warned', NULL); "
                              "RAISE WARNING 'careful'; END $$",
                              result));
    EXPECT_TRUE(contains(conn.getErrorMessage(), "careful")) << conn.getErrorMessage();
    EXPECT_TRUE(result.failed());
    // It ran all the same.
    EXPECT_EQ("warned", db.admin().value("SELECT name FROM item WHERE id = 5"));
}

TEST_F(OdbcBackend, ResultHandleReusedForAnotherStatementShowsOnlyTheNewRows) {
    db.admin().exec("INSERT INTO item VALUES (1, 'a', NULL), (2, 'b', NULL), (3, 'c', NULL)");
    QueryResultPtr result;
    ASSERT_TRUE(conn.execute("SELECT name FROM item ORDER BY id", result)) << conn.getErrorMessage();
    ASSERT_EQ(3, result.rows());
    ASSERT_TRUE(conn.execute("SELECT id, note FROM item WHERE id = 2", result)) << conn.getErrorMessage();
    EXPECT_EQ(1, result.rows());
    EXPECT_STREQ("2", result.getValue(0, 0));
    EXPECT_STREQ("note", result.getColumnName(1));
    EXPECT_STREQ("", result.getValue(1, 0));
}

TEST_F(OdbcBackend, ClosedConnectionIsEstablishedAgainByTheNextStatement) {
    int before = backendPid(conn);
    conn.close();
    conn.close();
    EXPECT_TRUE(conn.active());

    TraceCapture capture({"DatabaseConnection"});
    int after = backendPid(conn);
    EXPECT_GT(after, 0);
    EXPECT_NE(before, after);
    EXPECT_TRUE(capture.contains("DatabaseConnection", "trying to re-establish connection"));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "reconnected"));
}

// psqlODBC reports the killed session itself first (57P01, "terminating
// connection due to administrator command"): that statement fails. The next
// one finds the link gone (08S01), which reconnects and runs it again.
TEST_F(OdbcBackend, KilledBackendFailsOneStatementThenTheNextReconnects) {
    int pid = backendPid(conn);
    terminate(db, pid);
    EXPECT_TRUE(conn.active());

    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr first;
    EXPECT_FALSE(conn.execute("SELECT pg_backend_pid()", first));
    EXPECT_TRUE(contains(conn.getErrorMessage(), "terminating connection due to administrator command"))
        << conn.getErrorMessage();
    EXPECT_TRUE(first.failed());
    EXPECT_FALSE(capture.contains("DatabaseConnection", "communication error, will retry connection"));

    QueryResultPtr second;
    ASSERT_TRUE(conn.execute("SELECT pg_backend_pid()", second)) << conn.getErrorMessage();
    EXPECT_TRUE(capture.contains("DatabaseConnection", "communication error, will retry connection"));
    EXPECT_FALSE(second.failed());
    ASSERT_EQ(1, second.rows());
    int newPid = std::atoi(second.getValue(0, 0));
    EXPECT_GT(newPid, 0);
    EXPECT_NE(pid, newPid);
}

// A lost session is only noticed as a lost link (08S01) by the statement
// after the one that met the end of the session; with the server gone by
// then, the reconnect fails, and so does every later attempt.
TEST(OdbcServerGone, ReconnectFailsWhileTheServerIsAway) {
    OdbcResults odbcResults;
    velmtest::ScratchServer scratch;
    OdbcDataSource source("postgres", scratch.port());
    DatabaseConnectionOdbc conn;
    ASSERT_TRUE(conn.connect(source.name().c_str(), "velm", "secret")) << conn.getErrorMessage();

    QueryResultPtr killed;
    EXPECT_FALSE(conn.execute("SELECT pg_terminate_backend(pg_backend_pid())", killed));
    scratch.stop();

    TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr first;
    EXPECT_FALSE(conn.execute("SELECT 1", first));
    EXPECT_TRUE(capture.contains("DatabaseConnection", "communication error, will retry connection"));
    // The failed reconnect dropped the connection handle.
    EXPECT_EQ("No connection", conn.getErrorMessage());
    EXPECT_TRUE(first.failed());

    QueryResultPtr second;
    EXPECT_FALSE(conn.execute("SELECT 1", second));
    EXPECT_EQ("Failed to re-connect to database", conn.getErrorMessage());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "trying to re-establish connection"));
    EXPECT_TRUE(second.failed());
}
