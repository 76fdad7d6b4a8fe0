// DatabaseConnectionPgsql: a PostgreSQL connection over libpq.
#ifndef VELM_DATABASECONNECTIONPGSQL_H
#define VELM_DATABASECONNECTIONPGSQL_H

#include "DatabaseConnection.h"
#include "PreparedStatements.h"
#include "Trace.h"

#include <string>

typedef struct pg_conn PGconn;

namespace velm {

// A PostgreSQL connection over libpq. execute() resets the connection after a
// fatal error, whatever its cause (a lost server, or a write refused by one
// that became read-only, SQLSTATE 25006, so that a read-write location moves
// on to the primary), and runs the statement once more unless the session
// was inside a transaction block: that transaction is gone with the old
// session, so the failure is the caller's (a failed result, or false when no
// result came back at all).
//
// With [Database] PreparedStatements=true (read at connect) single statements
// run prepared by shape (see PreparedStatements); the text as written is
// still what is traced and kept with the result.
class DatabaseConnectionPgsql final : public DatabaseConnection {
public:
    DatabaseConnectionPgsql();
    ~DatabaseConnectionPgsql();
    DatabaseConnectionPgsql(const DatabaseConnectionPgsql&) = delete;
    DatabaseConnectionPgsql& operator=(const DatabaseConnectionPgsql&) = delete;

    // `database` is a URL (postgresql://host:port/name) or a plain database
    // name, whose values go into the libpq connection string unquoted; or a
    // location libpq reads itself (see libpqReadsLocation): a URI with several
    // hosts or parameters, or a keyword/value string. List the primary and
    // its standbys with target_session_attrs=read-write, so that a connect or
    // a reset reaches whichever server takes writes.
    bool connect(const char* database, const char* user, const char* password) override;
    void close() override;
    bool active() override;
    bool reset() override;
    bool execute(const char* sql, QueryResultPtr& result) override;
    bool execute(const std::string& sql, QueryResultPtr& result) override;
    const std::string& getErrorMessage() const override { return m_errorMsg; }

    // Server notices and warnings go to the trace, never to the error text.
    void handleNoticeMessage(const char* message);

private:
    PGconn* connectByUrl(const char* database, const char* user, const char* password);
    PGconn* connectExpanding(const char* database, const char* user, const char* password);
    bool okay();
    bool error(const char* text);
    bool error();
    // One round trip, prepared or as written.
    PGresult* run(const char* sql);

    PGconn* m_conn;
    bool m_usePrepared;
    PreparedStatements m_prepared;
    std::string m_errorMsg;
    Tracer m_trace;
};

} // namespace velm

#endif
