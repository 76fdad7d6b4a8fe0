// Fetching an ODBC statement's rows as text and reading its counts and errors.
#include "QueryResultOdbc.h"

#include "OdbcDiagnostic.h"
#include "ResultSet.h"

#include <sql.h>
#include <sqlext.h>

#include <climits>

namespace velm {

QueryResultOdbc::QueryResultOdbc() : m_hstmt(nullptr), m_rows(-1), m_trace("QueryResult") {
    m_trace.prn("new QueryResultOdbc");
}

QueryResultOdbc::~QueryResultOdbc() = default;

void QueryResultOdbc::setResult(void* statement) {
    if (statement == nullptr)
        return;
    m_results.reset();
    m_rows = -1;
    m_errorMessage.clear();
    m_hstmt = static_cast<SQLHSTMT*>(statement);
}

int QueryResultOdbc::rows() const {
    if (m_hstmt == nullptr)
        return 0;
    fetchOnce();
    return m_rows;
}

int QueryResultOdbc::columns() const {
    if (m_hstmt == nullptr)
        return 0;
    SQLSMALLINT count = 0;
    if (!SQL_SUCCEEDED(SQLNumResultCols(*m_hstmt, &count))) {
        m_trace.prn("**** SQLNumResultCols failed");
        return 0;
    }
    m_trace.prn("SQLNumResultCols returned %d", count);
    return count;
}

int QueryResultOdbc::updateCount() const {
    SQLLEN count = 0;
    if (m_hstmt == nullptr || !SQL_SUCCEEDED(SQLRowCount(*m_hstmt, &count)))
        return 0;
    return static_cast<int>(count);
}

const char* QueryResultOdbc::getColumnName(int column) const {
    if (m_hstmt == nullptr)
        return nullptr;
    fetchOnce();
    return m_results->columnName(column);
}

const char* QueryResultOdbc::getValue(int row, int column) const {
    if (m_hstmt == nullptr)
        return "";
    fetchOnce();
    const ResultSet::DataRow* data = m_results->row(row);
    if (data == nullptr)
        return "";
    return data->buffer(column);
}

int QueryResultOdbc::getErrorCode(std::string& name) const {
    if (m_hstmt == nullptr) {
        name = "NO QUERY EXECUTED";
        return -1;
    }
    name = "SQL_SUCCESS";
    return SQL_SUCCESS;
}

void QueryResultOdbc::fetchOnce() const {
    if (m_rows == -1)
        fetchData();
}

void QueryResultOdbc::fetchData() const {
    m_results = std::make_unique<ResultSet>();
    m_rows = 0;
    int columnCount = columns();
    if (columnCount < 1)
        return;

    for (int column = 1; column <= columnCount; ++column) {
        SQLCHAR name[256];
        SQLSMALLINT nameLength = 0;
        SQLSMALLINT type = 0;
        SQLULEN size = 0;
        SQLSMALLINT digits = 0;
        SQLSMALLINT nullable = 0;
        if (!SQL_SUCCEEDED(SQLDescribeCol(*m_hstmt, static_cast<SQLUSMALLINT>(column), name, sizeof name, &nameLength,
                                          &type, &size, &digits, &nullable))) {
            m_trace.prn("Failed to get column metadata");
            continue;
        }
        // A size that leaves no room for the terminator is no usable size.
        int bufferSize = size < static_cast<SQLULEN>(INT_MAX) ? static_cast<int>(size) : 0;
        m_trace.prn("Col[%d] name=%s, type=%d, size=%d", column, reinterpret_cast<const char*>(name), type, bufferSize);
        m_results->defineColumn(reinterpret_cast<const char*>(name), bufferSize);
    }
    m_trace.prn("query returned %d columns", columnCount);

    fetchRows(columnCount);
    // The bindings point at this result's buffers; the statement outlives it.
    SQLFreeStmt(*m_hstmt, SQL_UNBIND);
}

// Binds a fresh row before every fetch, so the row prepared for the fetch
// that reports the end stays in the set, empty.
void QueryResultOdbc::fetchRows(int columnCount) const {
    SQLLEN indicator = 0;
    for (;;) {
        m_trace.prn("adding new data row to result set");
        ResultSet::DataRow& row = m_results->addRow();
        for (int column = 0; column < columnCount; ++column) {
            m_trace.prn("binding column %d", column + 1);
            if (!SQL_SUCCEEDED(SQLBindCol(*m_hstmt, static_cast<SQLUSMALLINT>(column + 1), SQL_C_CHAR,
                                          row.buffer(column), m_results->columnSize(column), &indicator))) {
                m_trace.prn("SQLbindCol failed");
                return;
            }
        }
        m_trace.prn("doing fetch on row %d", m_rows);
        if (SQLFetch(*m_hstmt) != SQL_SUCCESS) {
            setErrorMessage();
            m_trace.prn("fetch failed: %s", m_errorMessage.c_str());
            return;
        }
        m_trace.prn("fetch OK");
        ++m_rows;
    }
}

void QueryResultOdbc::setErrorMessage() const {
    OdbcDiagnostic diagnostic;
    if (!diagnostic.read(SQL_HANDLE_STMT, *m_hstmt)) {
        m_errorMessage = "Unknown ODBC statement error";
        return;
    }
    m_errorMessage = diagnostic.message;
    m_trace.prn("%s", m_errorMessage.c_str());
}

} // namespace velm
