// Steps shared by the subscriber, public-address and contact commands.
#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
#include "DatabaseConnection.h"
#include "QueryResultPtr.h"

#include <sstream>

namespace velm {

DatabaseResult DatabaseCommandExecutor::fail(DatabaseResult::status status, const std::string& text) {
    error(text.c_str());
    return failure(status);
}

DatabaseResult DatabaseCommandExecutor::selectRows(const std::string& sql, QueryResultPtr& result,
                                                   const char* command) {
    m_trace.prn("%s", sql.c_str());
    DatabaseResult outcome = execute(sql, result);
    if (!outcome.okay())
        return outcome;
    if (result.rows() == 0) {
        m_trace.prn("zero rows found");
        outcome.setNotFound();
        return outcome;
    }
    m_trace.prn("%s returned %d rows", command, result.rows());
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::selectRowsTracingFailure(const std::string& sql, QueryResultPtr& result,
                                                                 const char* command) {
    DatabaseResult outcome = selectRows(sql, result, command);
    if (outcome.fatalError())
        m_trace.prn("%s", m_errorMsg.c_str());
    return outcome;
}

DatabaseResult DatabaseCommandExecutor::toInteger(const char* value, const char* name, int& number) {
    if (!hasValue(value))
        return fail(DatabaseResult::QUERY_ERROR, std::string("returned NULL ") + name);
    std::istringstream text(value);
    int converted;
    if (!(text >> converted)) {
        std::string message = std::string("Could not convert ") + name + "=" + value + " to integer.";
        m_trace.prn("%s", message.c_str());
        return fail(DatabaseResult::QUERY_ERROR, message);
    }
    number = converted;
    return DatabaseResult();
}

int DatabaseCommandExecutor::callFunction(const std::string& sql) {
    m_trace.prn("%s", sql.c_str());
    QueryResultPtr result;
    DatabaseResult::status status;
    if (run(sql, result, status))
        return 0;
    if (status == DatabaseResult::QUERY_ERROR) {
        // End the transaction the failed call has spoiled; nobody can act on
        // the outcome of this.
        QueryResultPtr ignored;
        m_conn->execute("ROLLBACK", ignored);
    }
    return -1;
}

} // namespace velm
