// The steps every command shares: the connection check, the run with its traces, and reading a column.
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

bool DatabaseCommandExecutor::fetchRows(const std::string& sql, QueryResultPtr& result, DatabaseResult& outcome) {
    if (!fetch(sql, result, outcome)) {
        m_trace.prn("%s", m_errorMsg.c_str());
        return false;
    }
    if (result.rows() == 0) {
        m_trace.prn("zero rows found");
        outcome.setNotFound();
        return false;
    }
    return true;
}

const char* DatabaseCommandExecutor::column(const QueryResultPtr& result, int row, int col) {
    const char* value = result.getValue(row, col);
    return hasValue(value) ? value : nullptr;
}

} // namespace velm
