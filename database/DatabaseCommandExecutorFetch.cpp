#include "DatabaseCommandExecutor.h"

#include "ColumnText.h"
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
    DatabaseResult::status status;
    if (run(sql, result, status))
        return true;
    const char* trace = status == DatabaseResult::CONNECTION_ERROR ? notExecutedTrace : rejectedTrace;
    if (trace != nullptr)
        m_trace.prn("%s", trace);
    outcome = failure(status);
    return false;
}

const char* DatabaseCommandExecutor::column(const QueryResultPtr& result, int row, int col) {
    const char* value = result.getValue(row, col);
    return hasValue(value) ? value : nullptr;
}

} // namespace velm
