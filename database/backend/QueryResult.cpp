// The result factory, which follows [SipServer] DatabaseType, and the SQLSTATE constants.
#include "QueryResult.h"

#include "BackendChoice.h"
#include "QueryResultOdbc.h"
#include "QueryResultPgsql.h"

namespace velm {

const std::string QueryResult::SQL_SUCCESSFUL_COMPLETION = "00000";
const std::string QueryResult::SQL_INTEGRITY_CONSTRAINT_VIOLATION = "23000";

std::atomic<bool> QueryResult::m_useNative{true};
std::atomic<bool> QueryResult::m_initialized{false};
osk::Mutex QueryResult::m_mutex;

QueryResult* QueryResult::createQueryResult() {
    chooseBackend(m_initialized, m_useNative, m_mutex);
    if (!m_useNative)
        return new QueryResultOdbc();
    return new QueryResultPgsql();
}

void QueryResult::deleteQueryResult(QueryResult* result) {
    delete result;
}

} // namespace velm
