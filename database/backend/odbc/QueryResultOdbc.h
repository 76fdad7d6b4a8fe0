// QueryResultOdbc: the result of a statement run through ODBC.
#ifndef VELM_QUERYRESULTODBC_H
#define VELM_QUERYRESULTODBC_H

#include "QueryResult.h"
#include "Trace.h"

#include <sqltypes.h>

#include <memory>
#include <string>

namespace velm {

class ResultSet;

// The result of a statement run by DatabaseConnectionOdbc. It reads from the
// connection's statement handle, fetching every row as text on first use, so
// read it before the connection runs its next statement.
//
// Failed exactly when no execution succeeded into it. The SQLSTATE is always
// "00000": integrity violations cannot be told apart through this backend.
class QueryResultOdbc : public QueryResult {
public:
    QueryResultOdbc();
    ~QueryResultOdbc() override;
    QueryResultOdbc(const QueryResultOdbc&) = delete;
    QueryResultOdbc& operator=(const QueryResultOdbc&) = delete;

    int rows() const override;
    int columns() const override;
    int updateCount() const override;
    bool failed() const override { return m_hstmt == nullptr; }
    const char* getColumnName(int column) const override;
    // Empty for a row out of range (and without a statement), null for a
    // column out of range; an SQL NULL reads as an empty text.
    const char* getValue(int row, int column) const override;
    // Why the fetch stopped: after a complete fetch the driver has no record
    // and the text is "Unknown ODBC statement error".
    std::string getErrorMessage() const override { return m_errorMessage; }
    // SQL_SUCCESS ("SQL_SUCCESS") after an execution, else -1 ("NO QUERY EXECUTED").
    int getErrorCode(std::string& name) const override;
    const std::string& getSqlCommand() const override { return m_sqlCommand; }
    std::string getSqlState() const override { return SQL_SUCCESSFUL_COMPLETION; }
    void setSqlCommand(const std::string& sql) override { m_sqlCommand = sql; }
    // `statement` is a SQLHSTMT* to the connection's statement handle; null is
    // ignored. Rows fetched from an earlier execution are dropped.
    void setResult(void* statement) override;

private:
    void fetchOnce() const;
    void fetchData() const;
    void fetchRows(int columnCount) const;
    void setErrorMessage() const;

    SQLHSTMT* m_hstmt;
    mutable std::unique_ptr<ResultSet> m_results;
    mutable std::string m_errorMessage;
    mutable int m_rows;
    Tracer m_trace;
    std::string m_sqlCommand;
};

} // namespace velm

#endif
