// QueryResultPgsql: the result of a statement run over libpq.
#ifndef VELM_QUERYRESULTPGSQL_H
#define VELM_QUERYRESULTPGSQL_H

#include "QueryResult.h"
#include "Trace.h"

#include <string>

typedef struct pg_result PGresult;

namespace velm {

// A libpq result. Without a result it reads as empty and not failed.
class QueryResultPgsql : public QueryResult {
public:
    QueryResultPgsql();
    ~QueryResultPgsql() override;
    QueryResultPgsql(const QueryResultPgsql&) = delete;
    QueryResultPgsql& operator=(const QueryResultPgsql&) = delete;

    int rows() const override;
    int columns() const override;
    int updateCount() const override;
    // Anything but PGRES_COMMAND_OK and PGRES_TUPLES_OK is a failure.
    bool failed() const override;
    const char* getColumnName(int column) const override;
    const char* getValue(int row, int column) const override;
    // libpq's error text, ", sqlState=", the SQLSTATE, ", sqlcommand=", the statement.
    std::string getErrorMessage() const override;
    int getErrorCode(std::string& name) const override;
    const std::string& getSqlCommand() const override { return m_sqlCommand; }
    std::string getSqlState() const override;
    void setSqlCommand(const std::string& sql) override { m_sqlCommand = sql; }
    void setResult(void* result) override;

    // True for every SQLSTATE of class 23: unique, foreign-key, not-null, check.
    bool integrityConstraintViolation() const;

private:
    PGresult* m_result;
    Tracer m_trace;
    std::string m_sqlCommand;
};

} // namespace velm

#endif
