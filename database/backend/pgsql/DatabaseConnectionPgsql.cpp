// Connecting to PostgreSQL over libpq, executing with one retry after a reset, and tracing notices.
#include "DatabaseConnectionPgsql.h"

#include "AppProperties.h"
#include "LibpqLocation.h"
#include "QueryResultPtr.h"
#include "URL.h"

#include <libpq-fe.h>
#include <strings.h>

namespace velm {

extern "C" void DbcNoticeProcessor(void* arg, const char* message) {
    if (arg != nullptr)
        static_cast<DatabaseConnectionPgsql*>(arg)->handleNoticeMessage(message);
}

DatabaseConnectionPgsql::DatabaseConnectionPgsql()
    : m_conn(nullptr), m_usePrepared(false), m_trace("DatabaseConnection") {}

DatabaseConnectionPgsql::~DatabaseConnectionPgsql() {
    close();
}

bool DatabaseConnectionPgsql::connect(const char* database, const char* user, const char* password) {
    if (database == nullptr || user == nullptr || password == nullptr)
        return error("missing connection parameters");

    const char* prepared = AppProperties::get("Database", "PreparedStatements");
    m_usePrepared = prepared != nullptr && strcasecmp(prepared, "true") == 0;
    m_prepared.forget();
    m_conn = libpqReadsLocation(database) ? connectExpanding(database, user, password)
                                          : connectByUrl(database, user, password);
    if (m_conn == nullptr)
        return error();
    PQsetNoticeProcessor(m_conn, &DbcNoticeProcessor, this);
    if (PQstatus(m_conn) != CONNECTION_OK) {
        m_trace.prn("connection failed, status=%d\n", static_cast<int>(PQstatus(m_conn)));
        return error();
    }
    return okay();
}

PGconn* DatabaseConnectionPgsql::connectByUrl(const char* database, const char* user, const char* password) {
    std::string host;
    std::string dbName;
    std::string port;
    osk::URL url(database);
    if (url.isValid()) {
        host = url.getHost();
        dbName = url.getPath();
        if (url.getPort() > 0)
            port = std::to_string(url.getPort());
    } else {
        dbName = database;
    }
    m_trace.prn("host=%s, db=%s, port=%s", host.c_str(), dbName.c_str(), port.c_str());

    std::string conninfo;
    if (!host.empty())
        conninfo += "host=" + host + " ";
    if (!port.empty())
        conninfo += "port=" + port + " ";
    conninfo += "dbname=" + dbName + " ";
    conninfo += "user=" + std::string(user) + " ";
    conninfo += "password=" + std::string(password);
    m_trace.prn("%s", conninfo.c_str());
    return PQconnectdb(conninfo.c_str());
}

PGconn* DatabaseConnectionPgsql::connectExpanding(const char* database, const char* user, const char* password) {
    m_trace.prn("location for libpq: %s, user=%s", database, user);
    // libpq expands the first dbname that is a URI or holds '=' into its
    // parameters; the user and password after it override the location's.
    const char* const keywords[] = {"dbname", "user", "password", nullptr};
    const char* const values[] = {database, user, password, nullptr};
    return PQconnectdbParams(keywords, values, 1);
}

void DatabaseConnectionPgsql::close() {
    if (m_conn == nullptr)
        return;
    PQfinish(m_conn);
    m_prepared.forget();
    m_trace.prn("connection closed");
    m_conn = nullptr;
}

bool DatabaseConnectionPgsql::active() {
    if (m_conn == nullptr)
        return error("no connection");
    return PQstatus(m_conn) == CONNECTION_OK;
}

bool DatabaseConnectionPgsql::reset() {
    if (m_conn == nullptr)
        return error("no connection to reset");
    PQreset(m_conn);
    m_prepared.forget();
    if (PQstatus(m_conn) == CONNECTION_OK)
        return okay();
    return error();
}

bool DatabaseConnectionPgsql::execute(const char* sql, QueryResultPtr& result) {
    if (m_conn == nullptr)
        return error("no connection");
    m_trace.prn("Executing query: \n%s\n", sql);
    result.setSqlCommand(sql);

    // A reset ends the server session and with it any open transaction. A
    // statement of that transaction run again on the new session would land
    // outside it (and outside its locks), so inside a transaction the
    // failure goes to the caller instead, whose ladder rolls back.
    const PGTransactionStatusType before = PQtransactionStatus(m_conn);
    const bool mayRetry = before != PQTRANS_INTRANS && before != PQTRANS_INERROR;

    PGresult* pgResult = run(sql);
    if (pgResult == nullptr) {
        m_trace.prn("fatal query error: retrying connection");
        if (!reset() || !mayRetry)
            return error("fatal error, query failed");
        m_trace.prn("connection reset, retrying query");
        pgResult = run(sql);
        if (pgResult == nullptr)
            return error("fatal query error after reset");
    }
    m_trace.prn("query returned, setting result");
    result.setResult(pgResult);

    std::string statusName;
    if (result.failed() && result.getErrorCode(statusName) == PGRES_FATAL_ERROR) {
        m_trace.prn("fatal error, retrying after: %s", statusName.c_str());
        if (!reset())
            return error("fatal query error, connection reset failed");
        // The failed result stays with the caller, who asks result.failed().
        if (!mayRetry)
            return okay();
        pgResult = run(sql);
        if (pgResult == nullptr)
            return error("fatal query error after reset");
        // The second outcome is the caller's to examine through result.failed().
        result.setResult(pgResult);
    }
    return okay();
}

PGresult* DatabaseConnectionPgsql::run(const char* sql) {
    return m_usePrepared ? m_prepared.exec(m_conn, sql) : PQexec(m_conn, sql);
}

bool DatabaseConnectionPgsql::execute(const std::string& sql, QueryResultPtr& result) {
    return execute(sql.c_str(), result);
}

void DatabaseConnectionPgsql::handleNoticeMessage(const char* message) {
    if (message != nullptr)
        m_trace.prn("libpq MESSAGE: %s", message);
}

bool DatabaseConnectionPgsql::okay() {
    m_errorMsg.clear();
    return true;
}

bool DatabaseConnectionPgsql::error(const char* text) {
    m_errorMsg = text;
    return false;
}

bool DatabaseConnectionPgsql::error() {
    const char* text = PQerrorMessage(m_conn);
    m_errorMsg = text != nullptr ? text : "unspecified error";
    return false;
}

} // namespace velm
