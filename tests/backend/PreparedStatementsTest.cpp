// The PostgreSQL backend with [Database] PreparedStatements=true: the same
// answers as the statements as written, each shape prepared once per session.
#include "AppProperties.h"
#include "DatabaseConnection.h"
#include "QueryResultPtr.h"
#include "TestConfiguration.h"
#include "TestServer.h"
#include "TraceCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using velm::DatabaseConnection;
using velm::QueryResultPtr;
using velmtest::TestDatabase;

namespace {

struct ConnectionDeleter {
    void operator()(DatabaseConnection* conn) const { DatabaseConnection::releaseConnection(conn); }
};

class PreparedStatements : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        velmtest::resetProperties();
        velm::AppProperties::set("Database", "PreparedStatements", GetParam() ? "True" : "false");
        db.admin().exec("CREATE TABLE item (id int PRIMARY KEY, note text)");
        ASSERT_TRUE(conn->connect(db.name().c_str(), "velm", "")) << conn->getErrorMessage();
    }

    std::string value(const std::string& sql) {
        QueryResultPtr result;
        EXPECT_TRUE(conn->execute(sql, result)) << conn->getErrorMessage();
        EXPECT_FALSE(result.failed()) << result.getErrorMessage();
        const char* text = result.getValue(0, 0);
        return text != nullptr ? text : "(no row)";
    }

    // The session's prepared statements, as the server knows them.
    std::string prepared() {
        QueryResultPtr result;
        EXPECT_TRUE(conn->execute("SELECT array_to_string(array_agg(statement ORDER BY statement), E' | ') FROM pg_prepared_statements",
                                  result));
        return result.getValue(0, 0);
    }

    std::string expectedPrepared(const std::string& shapes) { return GetParam() ? shapes : ""; }

    TestDatabase db;
    std::unique_ptr<DatabaseConnection, ConnectionDeleter> conn{DatabaseConnection::getConnection()};
};

TEST_P(PreparedStatements, OneShapeServesEveryValue) {
    velmtest::TraceCapture capture({"DatabaseConnection"});
    for (int id = 1; id <= 3; ++id)
        EXPECT_EQ("1", value("INSERT INTO item VALUES (" + std::to_string(id) + ", 'it''s " + std::to_string(id) +
                             "') RETURNING 1"));
    EXPECT_EQ("it's 2", value("SELECT note FROM item WHERE id = 2"));
    EXPECT_EQ("(no row)", value("SELECT note FROM item WHERE id = 9"));
    EXPECT_EQ("3", value("SELECT id FROM item WHERE note LIKE 'it%' ORDER BY 1 DESC"));
    EXPECT_EQ(expectedPrepared("INSERT INTO item VALUES ($1, $2) RETURNING $3 | SELECT id FROM item WHERE note LIKE "
                               "$1 ORDER BY 1 DESC | SELECT note FROM item WHERE id = $1"),
              prepared());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "Executing query: \nSELECT note FROM item WHERE id = 9\n"));
}

TEST_P(PreparedStatements, RefusedShapesRunAsWrittenAndKeepTheTransaction) {
    ASSERT_EQ("(no row)", value("BEGIN"));
    EXPECT_EQ("1", value("INSERT INTO item VALUES (1, 'a') RETURNING id"));
    // A typed literal has no parameter form: the server refuses the shape.
    EXPECT_EQ("2020-01-03", value("SELECT date '2020-01-02' + 1"));
    EXPECT_EQ("2020-01-04", value("SELECT date '2020-01-02' + 2"));
    EXPECT_EQ("2", value("INSERT INTO item VALUES (2, 'b') RETURNING id"));
    ASSERT_EQ("(no row)", value("COMMIT"));
    EXPECT_EQ("2", db.admin().value("SELECT count(*) FROM item"));
    EXPECT_EQ(expectedPrepared("INSERT INTO item VALUES ($1, $2) RETURNING id"), prepared());
}

TEST_P(PreparedStatements, FailuresKeepTheirStateAndTheRetryPolicy) {
    value("INSERT INTO item VALUES (1, 'a') RETURNING id");
    velmtest::TraceCapture capture({"DatabaseConnection"});
    QueryResultPtr result;
    ASSERT_TRUE(conn->execute("INSERT INTO item VALUES (1, 'again')", result));
    EXPECT_EQ("23505", result.getSqlState());
    EXPECT_TRUE(capture.contains("DatabaseConnection", "fatal error, retrying after: PGRES_FATAL_ERROR"));
    ASSERT_TRUE(conn->execute("SELECT note FROM item WHERE id = 'one'", result));
    EXPECT_EQ("22P02", result.getSqlState());
    // The resets forgot what was prepared; the session prepares afresh.
    EXPECT_EQ("a", value("SELECT note FROM item WHERE id = 1"));
    EXPECT_EQ(expectedPrepared("SELECT note FROM item WHERE id = $1"), prepared());
    ASSERT_TRUE(conn->reset());
    EXPECT_EQ("", prepared());
}

INSTANTIATE_TEST_SUITE_P(Switch, PreparedStatements, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) { return info.param ? "On" : "Off"; });

} // namespace
