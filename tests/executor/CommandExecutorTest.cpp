// The command executor's frame: connecting, the connection guard, how backend outcomes become DatabaseResults
// and error texts, and what every command does without a connection.
#include "ContactRecord.h"
#include "ContactSetRecord.h"
#include "ExecutorFixture.h"
#include "QueryResultPtr.h"
#include "RemoteFilter.h"
#include "SubscriberRecord.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

using velm::DatabaseCommandExecutor;
using velm::DatabaseResult;
using velm::QueryResultPtr;
using namespace velmtest;

namespace {

const char* const NO_CONNECTION = "attempt to execute a command with no database connection";

class CommandExecutor : public ExecutorTest {
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


} // namespace

TEST(CommandExecutorUnconnected, EveryCommandReportsTheMissingConnection) {
    velm::ContactRecord contact;
    std::string value;
    bool known = true;
    std::vector<velm::remoteFilter> filters;
    velm::SubscriberRecord subscriber;
    // A command run on an executor that never connected, what it answers (a
    // DatabaseResult's kind or an int command's number) and the error text.
    using E = DatabaseCommandExecutor;
    const std::vector<std::tuple<const char*, const char*, Command, const char*>> cases = {
        {"execute", "connectionError", [](E& e) { return kind(e.execute("SELECT 1")); }, NO_CONNECTION},
        {"removeContact", "0", [](E& e) { return text(e.removeContact("a", "b", "c")); }, ""},
        {"addContact", "-1", [&](E& e) { return text(e.addContact("a", "b", contact)); }, ""},
        {"addContact", "-1", [&](E& e) { return text(e.addContact(contact)); }, ""},
        {"lookupSubscriber", "-1", [&](E& e) { return text(e.lookupSubscriber("a", "b", subscriber, false)); }, ""},
        {"addContactSet", "connectionError", [](E& e) { return kind(e.addContactSet(velm::ContactSetRecord())); }, ""},
        {"createPublicAddress", "-1", [](E& e) { return text(e.createPublicAddress(7, "a", "b")); }, ""},
        {"getRemoteFilters", "-1", [&](E& e) { return text(e.getRemoteFilters(&filters, &value)); }, ""},
        // Skips the connection check: a statement that did not run is an empty value.
        {"getSystemParameterValue", "okay",
         [&](E& e) { return kind(e.getSystemParameterValue("velm", "system", "q", value)) + value; }, ""},
        // A sid of 0 is refused before the database is asked; any other needs it.
        {"hasVisitingUserSubscriberId", "badParameter",
         [&](E& e) {
             std::string answer = kind(e.hasVisitingUserSubscriberId(0, known));
             return answer + (known ? " known" : "");
         },
         "VUsid = 0"},
        {"hasVisitingUser", "connectionError", [&](E& e) { return kind(e.hasVisitingUserSubscriberId(5, known)); }, ""},
        {"addVisitingUser", "connectionError", [](E& e) { return kind(e.addVisitingUser(5)); }, ""},
        // A timer without time leaves the database alone.
        {"updateTimer", "okay", [](E& e) { return kind(e.updateTimer("r", "v", 0)); }, ""},
        {"updateTimer", "okay", [](E& e) { return kind(e.updateTimer(nullptr, nullptr, -5)); }, ""},
        {"updateTimer", "connectionError", [](E& e) { return kind(e.updateTimer("r", "v", 60)); },
         "updateTimer ConnectionError"},
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
    server();
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

TEST_F(CommandExecutor, OutcomesRowsCountsAndTheErrorText) {
    int count = -1;
    ASSERT_TRUE(exec.executeUpdate("INSERT INTO item VALUES (1, 'one'), (2, NULL), (3, 'c')", count));
    EXPECT_EQ(3, count);
    QueryResultPtr rows;
    DatabaseResult result = exec.execute("SELECT id, note FROM item ORDER BY id", rows);
    EXPECT_EQ("okay|", joined({kind(result), result.getErrorMessage()}));
    ASSERT_EQ(3, rows.rows());
    EXPECT_EQ("one|", joined({rows.getValue(0, 1), rows.getValue(1, 1)}));
    // A rejected statement is a query error with the composed text, which a
    // later success keeps: only the okay() paths of commands clear it.
    result = exec.execute("SELECT nothing FROM item");
    EXPECT_TRUE(result.queryError());
    EXPECT_TRUE(holds(result.getErrorMessage(), "nothing"));
    EXPECT_TRUE(holds(result.getErrorMessage(), ", sqlState=42703, sqlcommand=SELECT nothing FROM item"));
    EXPECT_TRUE(exec.execute("SELECT 1").okay());
    EXPECT_EQ(result.getErrorMessage(), exec.getErrorMessage());
    for (const auto& update : {std::make_pair("DELETE FROM item WHERE id >= 2", 2),
                               std::make_pair("DELETE FROM item WHERE id = 42", 0)}) {
        ASSERT_TRUE(exec.executeUpdate(update.first, count));
        EXPECT_EQ(joined({std::to_string(update.second), ""}), joined({std::to_string(count), exec.getErrorMessage()}));
    }
    count = 99;
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
    ScratchServer scratch;
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
    TraceCapture capture({EXECUTOR});
    std::string value = "stale";
    EXPECT_TRUE(reader.getSystemParameterValue("velm", "system", "qos", value).okay());
    EXPECT_EQ("", value);
    EXPECT_TRUE(capture.contains(
        EXECUTOR, "DatabaseCommandExecutor::getSystemParameterValue(): *** ERROR ***: db execute failed!, "
                            "cmd=SELECT system_parameters.value FROM system_parameters WHERE (((system_parameters."
                            "application = 'velm') AND (system_parameters.scope = 'system')) AND "
                            "(system_parameters.name = 'qos'));"));
}
