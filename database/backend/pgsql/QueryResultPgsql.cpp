// Reading a libpq result: rows, values, status names and error texts.
#include "QueryResultPgsql.h"

#include <libpq-fe.h>

#include <cstdlib>

namespace velm {

namespace {

const char* statusName(int status) {
    static const char* const names[] = {"PGRES_EMPTY_QUERY", "PGRES_COMMAND_OK",    "PGRES_TUPLES_OK",
                                        "PGRES_COPY_OUT",    "PGRES_COPY_IN",       "PGRES_BAD_RESPONSE",
                                        "PGRES_NONFATAL_ERROR", "PGRES_FATAL_ERROR"};
    if (status < 0 || status >= static_cast<int>(sizeof names / sizeof names[0]))
        return "UNRECOGNIZED CODE";
    return names[status];
}

} // namespace

QueryResultPgsql::QueryResultPgsql() : m_result(nullptr), m_trace("QueryResult") {}

QueryResultPgsql::~QueryResultPgsql() {
    if (m_result != nullptr) {
        m_trace.prn("deleting PGresult");
        PQclear(m_result);
    }
}

void QueryResultPgsql::setResult(void* result) {
    if (m_result != nullptr)
        PQclear(m_result);
    m_result = static_cast<PGresult*>(result);
}

bool QueryResultPgsql::failed() const {
    if (m_result == nullptr)
        return false;
    ExecStatusType status = PQresultStatus(m_result);
    if (m_trace.enabled())
        m_trace.prn("query result status is %d ('%s')\n", static_cast<int>(status), getErrorMessage().c_str());
    return status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK;
}

int QueryResultPgsql::rows() const {
    return m_result != nullptr ? PQntuples(m_result) : 0;
}

int QueryResultPgsql::columns() const {
    return m_result != nullptr ? PQnfields(m_result) : 0;
}

int QueryResultPgsql::updateCount() const {
    if (m_result == nullptr)
        return 0;
    const char* count = PQcmdTuples(m_result);
    return count != nullptr ? std::atoi(count) : 0;
}

const char* QueryResultPgsql::getColumnName(int column) const {
    if (m_result == nullptr || column < 0 || column > columns() - 1)
        return nullptr;
    return PQfname(m_result, column);
}

const char* QueryResultPgsql::getValue(int row, int column) const {
    if (m_result == nullptr || row < 0 || column < 0 || row > rows() - 1 || column > columns() - 1)
        return nullptr;
    return PQgetvalue(m_result, row, column);
}

std::string QueryResultPgsql::getErrorMessage() const {
    // Without a result libpq's text is empty, so the message still carries the
    // state and the statement.
    const char* text = PQresultErrorMessage(m_result);
    if (text == nullptr)
        return "unspecified result";
    return std::string(text) + ", sqlState=" + getSqlState() + ", sqlcommand=" + getSqlCommand();
}

int QueryResultPgsql::getErrorCode(std::string& name) const {
    if (m_result == nullptr) {
        name = "NO QUERY EXECUTED";
        return -1;
    }
    int status = PQresultStatus(m_result);
    name = statusName(status);
    return status;
}

std::string QueryResultPgsql::getSqlState() const {
    if (m_result != nullptr) {
        if (const char* state = PQresultErrorField(m_result, PG_DIAG_SQLSTATE))
            return state;
    }
    return SQL_SUCCESSFUL_COMPLETION;
}

bool QueryResultPgsql::integrityConstraintViolation() const {
    return getSqlState().compare(0, 2, SQL_INTEGRITY_CONSTRAINT_VIOLATION, 0, 2) == 0;
}

} // namespace velm
