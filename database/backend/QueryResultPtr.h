// QueryResultPtr: the owning handle through which callers read a backend's result.
#ifndef VELM_QUERYRESULTPTR_H
#define VELM_QUERYRESULTPTR_H

#include "QueryResult.h"

namespace velm {

// Owning handle of one backend result, created empty and filled by a
// connection's execute(). Every operation is forwarded to the held result.
class QueryResultPtr : public QueryResult {
public:
    QueryResultPtr() : m_qres(QueryResult::createQueryResult()) {}
    ~QueryResultPtr() override { QueryResult::deleteQueryResult(m_qres); }
    QueryResultPtr(const QueryResultPtr&) = delete;
    QueryResultPtr& operator=(const QueryResultPtr&) = delete;

    int rows() const override { return m_qres->rows(); }
    int columns() const override { return m_qres->columns(); }
    int updateCount() const override { return m_qres->updateCount(); }
    bool failed() const override { return m_qres->failed(); }
    const char* getColumnName(int column) const override { return m_qres->getColumnName(column); }
    const char* getValue(int row, int column) const override { return m_qres->getValue(row, column); }
    std::string getErrorMessage() const override { return m_qres->getErrorMessage(); }
    int getErrorCode(std::string& name) const override { return m_qres->getErrorCode(name); }
    const std::string& getSqlCommand() const override { return m_qres->getSqlCommand(); }
    std::string getSqlState() const override { return m_qres->getSqlState(); }
    void setSqlCommand(const std::string& sql) override { m_qres->setSqlCommand(sql); }
    void setResult(void* result) override { m_qres->setResult(result); }

    QueryResult* m_qres;
};

} // namespace velm

#endif
