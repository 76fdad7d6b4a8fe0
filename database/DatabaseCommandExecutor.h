#ifndef VELM_DATABASECOMMANDEXECUTOR_H
#define VELM_DATABASECOMMANDEXECUTOR_H

#include "DatabaseResult.h"
#include "Trace.h"

#include <string>

namespace velm {

class DatabaseConnection;
class QueryResultPtr;

// The SQL vocabulary of the schema: one member per statement family, run on
// the executor's own connection. An executor belongs to one thread at a time.
// Commands never throw; the text of the last failure is kept in m_errorMsg.
class DatabaseCommandExecutor {
public:
    DatabaseCommandExecutor();
    ~DatabaseCommandExecutor();
    DatabaseCommandExecutor(const DatabaseCommandExecutor&) = delete;
    DatabaseCommandExecutor& operator=(const DatabaseCommandExecutor&) = delete;

    // Connect once: connecting again abandons the old connection object
    // without closing it.
    bool connect(const char* database, const char* user, const char* password);
    bool checkConnect();
    DatabaseResult execute(const std::string& sql);
    DatabaseResult execute(const std::string& sql, QueryResultPtr& result);
    // Runs an INSERT, UPDATE or DELETE; only for a connected executor, as it
    // skips checkConnect().
    bool executeUpdate(const std::string& sql, int& count);
    const std::string& getErrorMessage() { return m_errorMsg; }

private:
    bool okay();
    bool error(const char* text);
    bool error(const QueryResultPtr& result);
    bool errorConnection();

    // Runs `sql` without checkConnect(); false, with the failure text in
    // m_errorMsg, when the statement did not run or the server rejected it.
    bool run(const std::string& sql, QueryResultPtr& result);
    // A result of `status` carrying m_errorMsg.
    DatabaseResult failure(DatabaseResult::status status) const;

    DatabaseConnection* m_conn;
    std::string m_errorMsg;
    Trace m_trace;
};

} // namespace velm

#endif
