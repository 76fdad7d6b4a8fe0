// Which result class the factory makes for [SipServer] DatabaseType, and that
// connections stay PostgreSQL whatever it says. Every case runs in its own
// process, so each one's first factory call reads the value it set.
#include "AppProperties.h"
#include "DatabaseConnection.h"
#include "DatabaseConnectionPgsql.h"
#include "QueryResultOdbc.h"
#include "QueryResultPgsql.h"
#include "QueryResultPtr.h"
#include "TestServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using velm::AppProperties;
using velm::DatabaseConnection;
using velm::QueryResultOdbc;
using velm::QueryResultPgsql;
using velm::QueryResultPtr;

namespace {

void setDatabaseType(const char* type) {
    AppProperties::set("SipServer", "DatabaseType", type);
}

// An ODBC result that has not been executed into is failed; a PostgreSQL one is not.
void expectOdbcResult() {
    QueryResultPtr result;
    EXPECT_NE(nullptr, dynamic_cast<QueryResultOdbc*>(result.m_qres));
    EXPECT_TRUE(result.failed());
}

void expectPostgresResult() {
    QueryResultPtr result;
    EXPECT_NE(nullptr, dynamic_cast<QueryResultPgsql*>(result.m_qres));
    EXPECT_FALSE(result.failed());
}

} // namespace

TEST(OdbcResultFactory, LowerCaseOdbcGivesOdbcResults) {
    setDatabaseType("odbc");
    expectOdbcResult();
}

TEST(OdbcResultFactory, UpperCaseOdbcGivesOdbcResults) {
    setDatabaseType("ODBC");
    expectOdbcResult();
}

TEST(OdbcResultFactory, MixedCaseOdbcGivesOdbcResults) {
    setDatabaseType("Odbc");
    expectOdbcResult();
}

TEST(OdbcResultFactory, AbsentTypeGivesPostgresResults) {
    setDatabaseType(nullptr);
    expectPostgresResult();
}

TEST(OdbcResultFactory, EmptyTypeGivesPostgresResults) {
    setDatabaseType("");
    expectPostgresResult();
}

TEST(OdbcResultFactory, OtherTypesGivePostgresResults) {
    setDatabaseType("odbc3");
    expectPostgresResult();
}

TEST(OdbcResultFactory, ChoiceIsMadeOnceAtTheFirstResult) {
    setDatabaseType("odbc");
    expectOdbcResult();
    setDatabaseType("pgsql");
    expectOdbcResult();
}

TEST(OdbcResultFactoryConcurrency, ThreadsMakingTheFirstResultsAtOnceAllGetTheConfiguredKind) {
    setDatabaseType("odbc");
    constexpr int threads = 8;
    constexpr int rounds = 50;
    std::atomic<int> ready{0};
    std::atomic<int> odbc{0};
    std::atomic<int> pgsqlConnections{0};
    std::vector<std::thread> makers;
    for (int t = 0; t < threads; ++t)
        makers.emplace_back([&] {
            ++ready;
            while (ready.load() < threads)
                std::this_thread::yield();
            for (int round = 0; round < rounds; ++round) {
                QueryResultPtr result;
                if (dynamic_cast<QueryResultOdbc*>(result.m_qres) != nullptr)
                    ++odbc;
                DatabaseConnection* conn = DatabaseConnection::getConnection();
                if (dynamic_cast<velm::DatabaseConnectionPgsql*>(conn) != nullptr)
                    ++pgsqlConnections;
                DatabaseConnection::releaseConnection(conn);
            }
        });
    for (std::thread& maker : makers)
        maker.join();
    EXPECT_EQ(threads * rounds, odbc.load());
    EXPECT_EQ(threads * rounds, pgsqlConnections.load()) << "connections stay PostgreSQL whatever the type";
    EXPECT_FALSE(DatabaseConnection::m_useNative);
}

TEST(OdbcResultFactory, FreshOdbcResultIsEmpty) {
    setDatabaseType("odbc");
    QueryResultPtr result;
    EXPECT_EQ(0, result.rows());
    EXPECT_EQ(0, result.columns());
    EXPECT_EQ(0, result.updateCount());
    EXPECT_STREQ("", result.getValue(0, 0));
    EXPECT_EQ(nullptr, result.getColumnName(0));
    EXPECT_EQ("00000", result.getSqlState());
    EXPECT_EQ("", result.getErrorMessage());
    std::string name;
    EXPECT_EQ(-1, result.getErrorCode(name));
    EXPECT_EQ("NO QUERY EXECUTED", name);
    result.setResult(nullptr);
    EXPECT_TRUE(result.failed());
}

TEST(OdbcResultFactory, ConnectionsStayPostgresWhenResultsAreOdbc) {
    setDatabaseType("odbc");
    velmtest::TestDatabase db;
    std::unique_ptr<DatabaseConnection, void (*)(DatabaseConnection*)> conn(DatabaseConnection::getConnection(),
                                                                            &DatabaseConnection::releaseConnection);
    EXPECT_NE(nullptr, dynamic_cast<velm::DatabaseConnectionPgsql*>(conn.get()));
    // A PostgreSQL connection is inactive until connected, and connects to
    // a plain database name through libpq, not to a data source.
    EXPECT_FALSE(conn->active());
    EXPECT_EQ("no connection", conn->getErrorMessage());
    EXPECT_TRUE(conn->connect(db.name().c_str(), "velm", "secret")) << conn->getErrorMessage();
    EXPECT_TRUE(conn->active());
    expectOdbcResult();
}
