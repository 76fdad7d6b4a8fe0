// The connection factory: always a PostgreSQL connection, after the backend choice is made.
#include "DatabaseConnection.h"

#include "BackendChoice.h"
#include "DatabaseConnectionPgsql.h"

namespace velm {

std::atomic<bool> DatabaseConnection::m_useNative{true};
std::atomic<bool> DatabaseConnection::m_initialized{false};
osk::Mutex DatabaseConnection::m_mutex;

DatabaseConnection* DatabaseConnection::getConnection() {
    chooseBackend(m_initialized, m_useNative, m_mutex);
    // The choice is kept for hosts to read, but connections are always
    // PostgreSQL: only result objects follow DatabaseType.
    return new DatabaseConnectionPgsql();
}

void DatabaseConnection::releaseConnection(DatabaseConnection* conn) {
    delete static_cast<DatabaseConnectionPgsql*>(conn);
}

} // namespace velm
