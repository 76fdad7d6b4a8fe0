// QueryResult: the interface to the rows, counts and errors of one executed statement.
#ifndef VELM_QUERYRESULT_H
#define VELM_QUERYRESULT_H

#include "Mutex.h"

#include <atomic>
#include <string>

namespace velm {

// The outcome of one executed statement: its rows, columns, update count,
// error text and SQLSTATE. Implemented by each backend.
class QueryResult {
public:
    // A new, empty result of the backend that [SipServer] DatabaseType names
    // ("odbc" in any case for ODBC, PostgreSQL otherwise). Owned by the caller.
    static QueryResult* createQueryResult();
    // Destroys a result; null is ignored.
    static void deleteQueryResult(QueryResult* result);

    virtual ~QueryResult() = default;
    virtual int rows() const = 0;
    virtual int columns() const = 0;
    virtual int updateCount() const = 0;
    virtual bool failed() const = 0;
    // Null when the column is out of range.
    virtual const char* getColumnName(int column) const = 0;
    // Null when out of range; an SQL NULL reads as an empty text.
    virtual const char* getValue(int row, int column) const = 0;
    virtual std::string getErrorMessage() const = 0;
    // The backend's status code; `name` receives its symbolic name.
    virtual int getErrorCode(std::string& name) const = 0;
    virtual const std::string& getSqlCommand() const = 0;
    virtual std::string getSqlState() const = 0;
    virtual void setSqlCommand(const std::string& sql) = 0;
    // Takes ownership of the backend's native result.
    virtual void setResult(void* result) = 0;

    static const std::string SQL_SUCCESSFUL_COMPLETION;
    static const std::string SQL_INTEGRITY_CONSTRAINT_VIOLATION;

    static std::atomic<bool> m_useNative;
    static std::atomic<bool> m_initialized;
    static osk::Mutex m_mutex;
};

} // namespace velm

#endif
