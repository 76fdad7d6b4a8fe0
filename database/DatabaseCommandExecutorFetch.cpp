#include "DatabaseCommandExecutor.h"

#include "DatabaseConnection.h"
#include "QueryResultPtr.h"

namespace velm {

bool DatabaseCommandExecutor::connected(DatabaseResult& outcome) {
    if (checkConnect())
        return true;
    outcome = failure(DatabaseResult::CONNECTION_ERROR);
    return false;
}

bool DatabaseCommandExecutor::fetch(const std::string& sql, QueryResultPtr& result, DatabaseResult& outcome,
                                    const char* notExecutedTrace, const char* rejectedTrace) {
    if (!m_conn->execute(sql, result)) {
        if (notExecutedTrace != nullptr)
            m_trace.prn("%s", notExecutedTrace);
        errorConnection();
        outcome = failure(DatabaseResult::CONNECTION_ERROR);
        return false;
    }
    if (result.failed()) {
        if (rejectedTrace != nullptr)
            m_trace.prn("%s", rejectedTrace);
        error(result);
        outcome = failure(DatabaseResult::QUERY_ERROR);
        return false;
    }
    return true;
}

const char* DatabaseCommandExecutor::column(const QueryResultPtr& result, int row, int col) {
    const char* value = result.getValue(row, col);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

} // namespace velm
