// DatabaseConnectionOdbc: a connection to an ODBC data source.
#ifndef VELM_DATABASECONNECTIONODBC_H
#define VELM_DATABASECONNECTIONODBC_H

#include "DatabaseConnection.h"
#include "Mutex.h"
#include "Trace.h"

#include <sqltypes.h>

#include <string>

namespace velm {

// A connection to an ODBC data source through the driver manager.
//
// Not made by DatabaseConnection::getConnection(): create it directly. Its
// results are ODBC results, so [SipServer] DatabaseType must be "odbc" before
// the first QueryResultPtr of the process is made. A result stays readable
// only until the next statement on the same connection, which replaces the
// statement handle the result reads from.
class DatabaseConnectionOdbc final : public DatabaseConnection {
public:
    DatabaseConnectionOdbc();
    ~DatabaseConnectionOdbc();
    DatabaseConnectionOdbc(const DatabaseConnectionOdbc&) = delete;
    DatabaseConnectionOdbc& operator=(const DatabaseConnectionOdbc&) = delete;

    // `dsn` names a data source of the driver manager's configuration.
    bool connect(const char* dsn, const char* user, const char* password) override;
    void close() override;
    // Always true: a broken connection is found by the next execute().
    bool active() override { return true; }
    bool reset() override;
    // Reconnects first when the connection was lost, and once more (then
    // runs the statement again) when the driver reports a communication
    // failure. SQL_SUCCESS_WITH_INFO counts as a failure.
    bool execute(const char* sql, QueryResultPtr& result) override;
    bool execute(const std::string& sql, QueryResultPtr& result) override;
    const std::string& getErrorMessage() const override { return m_errorMsg; }

private:
    bool okay();
    bool error(const char* text);
    bool errorConn();
    bool errorStmt();
    bool initStatement();
    bool executed(SQLRETURN rc, QueryResultPtr& result);
    void freeConnectionHandle();

    static SQLHENV initializeOdbc();

    SQLHDBC m_connHandle;
    SQLHSTMT m_hstmt;
    std::string m_dsn;
    std::string m_user;
    std::string m_password;
    std::string m_errorMsg;
    Tracer m_trace;

    // The one environment of the process, made on first need, never freed.
    // m_mutex guards its creation and every driver connect.
    static SQLHENV m_henv;
    static osk::Mutex m_mutex;
};

} // namespace velm

#endif
