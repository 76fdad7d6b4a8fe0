// The command executor's frame: connecting, the connection guard, and how
// backend outcomes become DatabaseResults and error texts.
#include "DatabaseCommandExecutor.h"
#include "QueryResultPtr.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velm::QueryResultPtr;
using velmtest::TestDatabase;

namespace {

const char* const NO_CONNECTION = "attempt to execute a command with no database connection";

class CommandExecutor : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(exec.connect(db.name().c_str(), "velm", "pw")) << exec.getErrorMessage();
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, note text)");
    }

    int backendPid() {
        QueryResultPtr result;
        EXPECT_TRUE(exec.execute("SELECT pg_backend_pid()", result).okay());
        return std::atoi(result.getValue(0, 0));
    }

    TestDatabase db;
    DatabaseCommandExecutor exec;
};

} // namespace

TEST(CommandExecutorUnconnected, EveryEntryPointReportsTheMissingConnection) {
    DatabaseCommandExecutor exec;
    EXPECT_FALSE(exec.checkConnect());
    EXPECT_EQ(NO_CONNECTION, exec.getErrorMessage());
    DatabaseResult result = exec.execute("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    EXPECT_EQ(NO_CONNECTION, result.getErrorMessage());
    QueryResultPtr rows;
    EXPECT_TRUE(exec.execute("SELECT 1", rows).connectionError());
    EXPECT_EQ(0, rows.rows());
}

TEST(CommandExecutorConnect, FailureCarriesTheBackendsText) {
    velmtest::server();
    DatabaseCommandExecutor incomplete;
    EXPECT_FALSE(incomplete.connect(nullptr, "velm", "pw"));
    EXPECT_EQ("missing connection parameters", incomplete.getErrorMessage());

    DatabaseCommandExecutor exec;
    EXPECT_FALSE(exec.connect("no_such_database", "velm", "pw"));
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("no_such_database"));
    // The failed connection stays; the guard tries to revive it and reports why it cannot.
    DatabaseResult result = exec.execute("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("no_such_database")) << result.getErrorMessage();
}

TEST_F(CommandExecutor, SuccessIsOkayAndLeavesRowsWithTheCaller) {
    EXPECT_TRUE(exec.execute("INSERT INTO item VALUES (1, 'one'), (2, NULL)").okay());
    QueryResultPtr rows;
    DatabaseResult result = exec.execute("SELECT id, note FROM item ORDER BY id", rows);
    EXPECT_TRUE(result.okay());
    EXPECT_EQ("", result.getErrorMessage());
    ASSERT_EQ(2, rows.rows());
    EXPECT_STREQ("one", rows.getValue(0, 1));
    EXPECT_STREQ("", rows.getValue(1, 1));
}

TEST_F(CommandExecutor, RejectedStatementIsAQueryErrorWithTheComposedText) {
    DatabaseResult result = exec.execute("SELECT nothing FROM item");
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("nothing"));
    EXPECT_NE(std::string::npos, result.getErrorMessage().find(", sqlState=42703, sqlcommand=SELECT nothing FROM item"));
    EXPECT_EQ(result.getErrorMessage(), exec.getErrorMessage());
    // A later success does not clear the executor's text; only okay() paths do.
    EXPECT_TRUE(exec.execute("SELECT 1").okay());
    EXPECT_EQ(result.getErrorMessage(), exec.getErrorMessage());
}

TEST_F(CommandExecutor, ExecuteUpdateCountsRowsAndClearsTheErrorText) {
    exec.execute("SELECT nothing");
    ASSERT_NE("", exec.getErrorMessage());
    int count = -1;
    ASSERT_TRUE(exec.executeUpdate("INSERT INTO item VALUES (1, 'a'), (2, 'b'), (3, 'c')", count));
    EXPECT_EQ(3, count);
    EXPECT_EQ("", exec.getErrorMessage());
    ASSERT_TRUE(exec.executeUpdate("DELETE FROM item WHERE id >= 2", count));
    EXPECT_EQ(2, count);
    ASSERT_TRUE(exec.executeUpdate("DELETE FROM item WHERE id = 42", count));
    EXPECT_EQ(0, count);
}

TEST_F(CommandExecutor, ExecuteUpdateReportsARejectedStatement) {
    int count = 99;
    EXPECT_TRUE(exec.executeUpdate("INSERT INTO item VALUES (1, 'a')", count));
    EXPECT_FALSE(exec.executeUpdate("INSERT INTO item VALUES (1, 'again')", count));
    EXPECT_EQ(1, count);
    EXPECT_NE(std::string::npos, exec.getErrorMessage().find("sqlState=23505"));
}

TEST_F(CommandExecutor, KilledSessionIsRevivedWithoutAnError) {
    int before = backendPid();
    db.terminateBackend(before);
    DatabaseResult result = exec.execute("INSERT INTO item VALUES (5, 'five')");
    EXPECT_TRUE(result.okay()) << result.getErrorMessage();
    EXPECT_EQ("1", db.admin().value("SELECT count(*) FROM item WHERE id = 5"));
    EXPECT_NE(before, backendPid());
}

TEST(CommandExecutorServerGone, FailedResultOutweighsTheLostConnection) {
    velmtest::ScratchServer scratch;
    DatabaseCommandExecutor exec;
    ASSERT_TRUE(exec.connect(scratch.database().c_str(), "velm", "pw")) << exec.getErrorMessage();
    scratch.stop();

    DatabaseResult result = exec.execute("SELECT 1");
    // The backend could not reset after a fatal result, but the failed result wins.
    EXPECT_TRUE(result.queryError());
    EXPECT_NE(std::string::npos, result.getErrorMessage().find(", sqlState="));
    EXPECT_NE(std::string::npos, result.getErrorMessage().find("sqlcommand=SELECT 1"));

    // Now the session is known to be broken: the guard's reset fails.
    DatabaseResult next = exec.execute("SELECT 1");
    EXPECT_TRUE(next.connectionError());
    EXPECT_FALSE(next.getErrorMessage().empty());
}
