// The executor's connection, statement runs and the failure texts it keeps.
#include "DatabaseCommandExecutor.h"

#include "DatabaseConnection.h"
#include "QueryResultPtr.h"

namespace velm {

DatabaseCommandExecutor::DatabaseCommandExecutor()
    : m_conn(nullptr), m_trace("DatabaseCommandExecutor") {}

DatabaseCommandExecutor::~DatabaseCommandExecutor() {
    if (m_conn != nullptr)
        DatabaseConnection::releaseConnection(m_conn);
}

bool DatabaseCommandExecutor::connect(const char* database, const char* user, const char* password) {
    // A previous connection object is dropped without closing its session,
    // as it always was; callers connect an executor once.
    if (m_conn != nullptr)
        ::operator delete(m_conn);
    m_conn = DatabaseConnection::getConnection();
    if (m_conn == nullptr)
        return error("failed to allocate connection object");
    if (m_conn->connect(database, user, password))
        return okay();
    return errorConnection();
}

bool DatabaseCommandExecutor::checkConnect() {
    if (m_conn == nullptr)
        return error("attempt to execute a command with no database connection");
    if (m_conn->active())
        return true;
    if (m_conn->reset())
        return true;
    return errorConnection();
}

DatabaseResult DatabaseCommandExecutor::execute(const std::string& sql) {
    QueryResultPtr result;
    return execute(sql, result);
}

DatabaseResult DatabaseCommandExecutor::execute(const std::string& sql, QueryResultPtr& result) {
    if (!checkConnect())
        return failure(DatabaseResult::CONNECTION_ERROR);
    DatabaseResult outcome;
    if (!m_conn->execute(sql, result)) {
        errorConnection();
        outcome = failure(DatabaseResult::CONNECTION_ERROR);
    }
    // A rejected statement outweighs a lost connection.
    if (result.failed()) {
        error(result);
        outcome = failure(DatabaseResult::QUERY_ERROR);
    }
    return outcome;
}

bool DatabaseCommandExecutor::executeUpdate(const std::string& sql, int& count) {
    QueryResultPtr result;
    if (!run(sql, result))
        return false;
    count = result.updateCount();
    return okay();
}

bool DatabaseCommandExecutor::run(const std::string& sql, QueryResultPtr& result) {
    DatabaseResult::status status;
    return run(sql, result, status);
}

bool DatabaseCommandExecutor::run(const std::string& sql, QueryResultPtr& result, DatabaseResult::status& status) {
    status = DatabaseResult::OKAY;
    if (!m_conn->execute(sql, result)) {
        status = DatabaseResult::CONNECTION_ERROR;
        return errorConnection();
    }
    if (result.failed()) {
        status = DatabaseResult::QUERY_ERROR;
        return error(result);
    }
    return true;
}

DatabaseResult DatabaseCommandExecutor::failure(DatabaseResult::status status) const {
    DatabaseResult outcome;
    outcome.m_status = status;
    outcome.setErrorMessage(m_errorMsg);
    return outcome;
}

bool DatabaseCommandExecutor::okay() {
    m_errorMsg.clear();
    return true;
}

bool DatabaseCommandExecutor::error(const char* text) {
    m_errorMsg = text;
    return false;
}

bool DatabaseCommandExecutor::error(const QueryResultPtr& result) {
    m_errorMsg = result.getErrorMessage();
    return false;
}

bool DatabaseCommandExecutor::errorConnection() {
    m_errorMsg = m_conn->getErrorMessage();
    return false;
}

} // namespace velm
