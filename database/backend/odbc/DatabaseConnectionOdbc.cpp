// Connecting, executing and reconnecting through the ODBC driver manager.
#include "DatabaseConnectionOdbc.h"

#include "OdbcDiagnostic.h"
#include "QueryResultPtr.h"
#include "SafeLock.h"

#include <sql.h>
#include <sqlext.h>

#include <cstdint>

namespace velm {

namespace {

SQLCHAR* sqlText(const char* text) {
    return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text));
}

SQLPOINTER integerAttribute(SQLINTEGER value) {
    return reinterpret_cast<SQLPOINTER>(static_cast<std::intptr_t>(value));
}

void freeStatement(SQLHSTMT& statement) {
    SQLFreeStmt(statement, SQL_CLOSE);
    SQLFreeHandle(SQL_HANDLE_STMT, statement);
    statement = SQL_NULL_HSTMT;
}

} // namespace

SQLHENV DatabaseConnectionOdbc::m_henv = SQL_NULL_HENV;
osk::Mutex DatabaseConnectionOdbc::m_mutex;

DatabaseConnectionOdbc::DatabaseConnectionOdbc()
    : m_connHandle(SQL_NULL_HDBC), m_hstmt(SQL_NULL_HSTMT), m_trace("DatabaseConnection") {}

DatabaseConnectionOdbc::~DatabaseConnectionOdbc() {
    close();
}

SQLHENV DatabaseConnectionOdbc::initializeOdbc() {
    return osk::withCancelSafeLock(m_mutex, [] {
        if (m_henv != SQL_NULL_HENV)
            return m_henv;
        if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &m_henv))) {
            m_henv = SQL_NULL_HENV;
            return m_henv;
        }
        if (!SQL_SUCCEEDED(SQLSetEnvAttr(m_henv, SQL_ATTR_ODBC_VERSION, integerAttribute(SQL_OV_ODBC3), 0))) {
            SQLFreeHandle(SQL_HANDLE_ENV, m_henv);
            m_henv = SQL_NULL_HENV;
        }
        return m_henv;
    });
}

bool DatabaseConnectionOdbc::connect(const char* dsn, const char* user, const char* password) {
    if (dsn == nullptr || user == nullptr || password == nullptr)
        return error("missing connection parameters");
    m_dsn = dsn;
    m_user = user;
    m_password = password;
    m_trace.prn("establishing ODBC database connection to %s as %s", dsn, user);

    SQLHENV environment = initializeOdbc();
    if (environment == SQL_NULL_HENV)
        return error("Failed to initialized ODBC environment");

    // Connecting again replaces the connection held so far.
    close();
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, environment, &m_connHandle))) {
        m_connHandle = SQL_NULL_HDBC;
        return error("Failed to allocate SQL connection handle");
    }
    m_trace.prn("connection handle %ld allocated, connecting to driver", reinterpret_cast<long>(m_connHandle));

    std::string connectText = "DSN=" + m_dsn + ";" + "UID=" + m_user + ";" + "PWD=" + m_password;
    m_trace.prn("connecting with '%s'", connectText.c_str());
    SQLCHAR completed[2048];
    SQLSMALLINT completedLength = 0;
    // psqlODBC changes the process locale while it connects, and setlocale is
    // not thread-safe: connections of the process are made one at a time.
    SQLRETURN rc = osk::withCancelSafeLock(m_mutex, [&] {
        return SQLDriverConnect(m_connHandle, nullptr, sqlText(connectText.c_str()), SQL_NTS, completed,
                                sizeof completed, &completedLength, SQL_DRIVER_NOPROMPT);
    });
    if (!SQL_SUCCEEDED(rc)) {
        errorConn();
        freeConnectionHandle();
        m_trace.prn("SQLDriverConnect failed: %s", m_errorMsg.c_str());
        return false;
    }

    m_trace.prn("connected to data source, setting auto-commit and timeout attributes");
    if (!SQL_SUCCEEDED(SQLSetConnectAttr(m_connHandle, SQL_ATTR_LOGIN_TIMEOUT, integerAttribute(5), SQL_IS_INTEGER))) {
        errorConn();
        SQLDisconnect(m_connHandle);
        freeConnectionHandle();
        return false;
    }
    if (!initStatement()) {
        m_trace.prn("init statement failed");
        return false;
    }

    // Data sources that know the catalog switch to it; the others refuse,
    // which does no harm.
    QueryResultPtr catalog;
    execute("SET CATALOG tarn_admin", catalog);

    m_trace.prn("setting cursor type");
    return okay();
}

void DatabaseConnectionOdbc::close() {
    if (m_connHandle != SQL_NULL_HDBC) {
        if (m_hstmt != SQL_NULL_HSTMT)
            freeStatement(m_hstmt);
        SQLDisconnect(m_connHandle);
        freeConnectionHandle();
    }
    m_hstmt = SQL_NULL_HSTMT;
}

bool DatabaseConnectionOdbc::reset() {
    close();
    // connect() replaces the stored texts, so hand it copies.
    const std::string dsn = m_dsn;
    const std::string user = m_user;
    const std::string password = m_password;
    return connect(dsn.c_str(), user.c_str(), password.c_str());
}

bool DatabaseConnectionOdbc::execute(const char* sql, QueryResultPtr& result) {
    if (m_connHandle == SQL_NULL_HDBC) {
        if (m_dsn.empty())
            return error("no connection");
        m_trace.prn("trying to re-establish connection");
        if (!reset())
            return error("Failed to re-connect to database");
        m_trace.prn("reconnected");
    }

    m_trace.prn("Executing query: \n%s\n", sql);
    if (!initStatement()) {
        m_trace.prn("failed to initialize statement");
        return false;
    }
    // The driver's default forward-only cursor is what the fetch needs.
    m_trace.prn("cursor type set");

    if (executed(SQLExecDirect(m_hstmt, sqlText(sql), SQL_NTS), result))
        return okay();

    m_trace.prn("execute FAILED");
    OdbcDiagnostic diagnostic;
    if (!diagnostic.read(SQL_HANDLE_STMT, m_hstmt))
        return error("Unknown ODBC error");
    m_trace.prn("error: %s", diagnostic.message.c_str());
    if (diagnostic.sqlState != "08S01")
        return errorStmt();

    m_trace.prn("communication error, will retry connection");
    if (!reset())
        return errorConn();
    if (executed(SQLExecDirect(m_hstmt, sqlText(sql), SQL_NTS), result))
        return okay();
    return errorStmt();
}

bool DatabaseConnectionOdbc::execute(const std::string& sql, QueryResultPtr& result) {
    return execute(sql.c_str(), result);
}

// Only a clean success counts: SQL_SUCCESS_WITH_INFO is a failure here.
bool DatabaseConnectionOdbc::executed(SQLRETURN rc, QueryResultPtr& result) {
    if (rc != SQL_SUCCESS && rc != SQL_NO_DATA)
        return false;
    m_trace.prn("execute okay");
    result.setResult(&m_hstmt);
    return true;
}

bool DatabaseConnectionOdbc::initStatement() {
    if (m_hstmt != SQL_NULL_HSTMT)
        freeStatement(m_hstmt);
    m_trace.prn("allocating statement handle");
    if (SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, m_connHandle, &m_hstmt)))
        return true;
    errorConn();
    SQLDisconnect(m_connHandle);
    freeConnectionHandle();
    m_hstmt = SQL_NULL_HSTMT;
    return false;
}

void DatabaseConnectionOdbc::freeConnectionHandle() {
    SQLFreeHandle(SQL_HANDLE_DBC, m_connHandle);
    m_connHandle = SQL_NULL_HDBC;
}

bool DatabaseConnectionOdbc::okay() {
    m_errorMsg.clear();
    return true;
}

bool DatabaseConnectionOdbc::error(const char* text) {
    m_errorMsg = text;
    return false;
}

bool DatabaseConnectionOdbc::errorConn() {
    if (m_connHandle == SQL_NULL_HDBC)
        return error("No connection");
    OdbcDiagnostic diagnostic;
    if (!diagnostic.read(SQL_HANDLE_DBC, m_connHandle))
        return error("Unknown ODBC error");
    return error(diagnostic.message.c_str());
}

bool DatabaseConnectionOdbc::errorStmt() {
    OdbcDiagnostic diagnostic;
    if (!diagnostic.read(SQL_HANDLE_STMT, m_hstmt))
        return error("Unknown ODBC error");
    return error(diagnostic.message.c_str());
}

} // namespace velm
