// The command executor's frame: connecting, the connection guard, how backend outcomes become DatabaseResults
// and error texts, and what every command does without a connection.
#include "ContactRecord.h"
#include "ContactSetRecord.h"
#include "ExecutorFixture.h"
#include "QueryResultPtr.h"
#include "RemoteFilter.h"
#include "SubscriberRecord.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velm::QueryResultPtr;
using velmtest::holds;
using velmtest::kind;

namespace {

const char* const NO_CONNECTION = "attempt to execute a command with no database connection";

class CommandExecutor : public velmtest::ExecutorTest {
protected:
    void SetUp() override {
        ExecutorTest::SetUp();
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, note text)");
    }

    int backendPid() {
        QueryResultPtr result;
        EXPECT_TRUE(exec.execute("SELECT pg_backend_pid()", result).okay());
        return std::atoi(result.getValue(0, 0));
    }
};

using Command = std::function<std::string(DatabaseCommandExecutor&)>;

std::string n(int answer) {
    return std::to_string(answer);
}

} // namespace

TEST(CommandExecutorUnconnected, EveryCommandReportsTheMissingConnection) {
    velm::ContactRecord contact;
    int id = 0;
    std::string text;
    bool known = true;
    std::vector<velm::remoteFilter> filters;
    velm::SubscriberRecord subscriber;
    // A command run on an executor that never connected, what it answers (a
    // DatabaseResult's kind or an int command's number) and the error text.
    using E = DatabaseCommandExecutor;
    const std::vector<std::tuple<const char*, const char*, Command, const char*>> cases = {
        {"execute", "connectionError", [](E& e) { return kind(e.execute("SELECT 1")); }, NO_CONNECTION},
        {"removeContact", "0", [](E& e) { return n(e.removeContact("a", "b", "c")); }, ""},
        {"addContact", "-1", [&](E& e) { return n(e.addContact("a", "b", contact)); }, ""},
        {"addContact", "-1", [&](E& e) { return n(e.addContact(contact)); }, ""},
        {"lookupSubscriber", "-1", [&](E& e) { return n(e.lookupSubscriber("a", "b", subscriber, false)); }, ""},
        {"addContactSet", "connectionError", [](E& e) { return kind(e.addContactSet(velm::ContactSetRecord())); }, ""},
        {"createPublicAddress", "-1", [](E& e) { return n(e.createPublicAddress(7, "a", "b")); }, ""},
        {"getRemoteFilters", "-1", [&](E& e) { return n(e.getRemoteFilters(&filters, &text)); }, ""},
        {"getNextContactId", "connectionError", [&](E& e) { return kind(e.getNextContactId(10, 0, id)); }, ""},
        {"getIdentity", "connectionError", [&](E& e) { return kind(e.getIdentity("a", "b", text)); }, ""},
        // Skips the connection check: a statement that did not run is an empty value.
        {"getSystemParameterValue", "okay",
         [&](E& e) { return kind(e.getSystemParameterValue("velm", "system", "q", text)) + text; }, ""},
        // A sid of 0 is refused before the database is asked; any other needs it.
        {"hasVisitingUserSubscriberId", "badParameter",
         [&](E& e) {
             std::string answer = kind(e.hasVisitingUserSubscriberId(0, known));
             return answer + (known ? " known" : "");
         },
         "VUsid = 0"},
        {"hasVisitingUserSubscriberId", "connectionError", [&](E& e) { return kind(e.hasVisitingUserSubscriberId(5, known)); }, ""},
        {"addVisitingUser", "connectionError", [](E& e) { return kind(e.addVisitingUser(5)); }, ""},
        // A timer without time leaves the database alone.
        {"updateTimer", "okay", [](E& e) { return kind(e.updateTimer("r", "v", 0)); }, ""},
        {"updateTimer", "okay", [](E& e) { return kind(e.updateTimer(nullptr, nullptr, -5)); }, ""},
        {"updateTimer", "connectionError", [](E& e) { return kind(e.updateTimer("r", "v", 60)); }, "updateTimer ConnectionError"},
    };
    for (const auto& c : cases) {
        DatabaseCommandExecutor exec;
        EXPECT_EQ(std::get<1>(c), std::get<2>(c)(exec)) << std::get<0>(c);
        if (*std::get<3>(c)) {
            EXPECT_EQ(std::get<3>(c), exec.getErrorMessage()) << std::get<0>(c);
        }
    }
    DatabaseCommandExecutor exec;
    EXPECT_FALSE(exec.checkConnect());
    EXPECT_EQ(NO_CONNECTION, exec.getErrorMessage());
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
    EXPECT_TRUE(holds(exec.getErrorMessage(), "no_such_database"));
    // The failed connection stays; the guard tries to revive it and reports why it cannot.
    DatabaseResult result = exec.execute("SELECT 1");
    EXPECT_TRUE(result.connectionError());
    EXPECT_TRUE(holds(result.getErrorMessage(), "no_such_database"));
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
    EXPECT_TRUE(holds(result.getErrorMessage(), "nothing"));
    EXPECT_TRUE(holds(result.getErrorMessage(), ", sqlState=42703, sqlcommand=SELECT nothing FROM item"));
    EXPECT_EQ(result.getErrorMessage(), exec.getErrorMessage());
    // A later success does not clear the executor's text; only okay() paths do.
    EXPECT_TRUE(exec.execute("SELECT 1").okay());
    EXPECT_EQ(result.getErrorMessage(), exec.getErrorMessage());
}

TEST_F(CommandExecutor, ExecuteUpdateCountsRowsAndClearsTheErrorText) {
    exec.execute("SELECT nothing");
    ASSERT_NE("", exec.getErrorMessage());
    const std::pair<const char*, int> updates[] = {{"INSERT INTO item VALUES (1, 'a'), (2, 'b'), (3, 'c')", 3},
                                                   {"DELETE FROM item WHERE id >= 2", 2},
                                                   {"DELETE FROM item WHERE id = 42", 0}};
    for (const auto& update : updates) {
        int count = -1;
        ASSERT_TRUE(exec.executeUpdate(update.first, count)) << update.first;
        EXPECT_EQ(update.second, count) << update.first;
        EXPECT_EQ("", exec.getErrorMessage());
    }
    int count = 99;
    EXPECT_FALSE(exec.executeUpdate("INSERT INTO item VALUES (1, 'again')", count));
    EXPECT_EQ(99, count);
    EXPECT_TRUE(holds(exec.getErrorMessage(), "sqlState=23505"));
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
    DatabaseCommandExecutor exec, reader;
    ASSERT_TRUE(exec.connect(scratch.database().c_str(), "velm", "pw")) << exec.getErrorMessage();
    ASSERT_TRUE(reader.connect(scratch.database().c_str(), "velm", "pw")) << reader.getErrorMessage();
    scratch.stop();

    DatabaseResult result = exec.execute("SELECT 1");
    // The backend could not reset after a fatal result, but the failed result wins.
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(holds(result.getErrorMessage(), ", sqlState="));
    EXPECT_TRUE(holds(result.getErrorMessage(), "sqlcommand=SELECT 1"));

    // Now the session is known to be broken: the guard's reset fails.
    DatabaseResult next = exec.execute("SELECT 1");
    EXPECT_TRUE(next.connectionError());
    EXPECT_FALSE(next.getErrorMessage().empty());

    // A system parameter whose statement failed is only traced, as an empty value.
    velmtest::TraceCapture capture({velmtest::EXECUTOR});
    std::string value = "stale";
    EXPECT_TRUE(reader.getSystemParameterValue("velm", "system", "qos", value).okay());
    EXPECT_EQ("", value);
    EXPECT_TRUE(capture.contains(
        velmtest::EXECUTOR, "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: db execute failed!, "
                            "cmd=SELECT system_parameters.value FROM system_parameters WHERE (((system_parameters."
                            "application = 'velm') AND (system_parameters.scope = 'system')) AND "
                            "(system_parameters.name = 'qos'));"));
}
