// DatabaseConnection: the interface every backend's connection implements.
#ifndef VELM_DATABASECONNECTION_H
#define VELM_DATABASECONNECTION_H

#include "Mutex.h"

#include <atomic>
#include <string>

namespace velm {

class QueryResultPtr;

// A connection to the database, implemented by one backend.
//
// Objects come from getConnection() and go back through releaseConnection():
// the class has no virtual destructor, so deleting through it is wrong.
class DatabaseConnection {
public:
    // A new, unconnected connection owned by the caller. It is always a
    // PostgreSQL connection, whatever [SipServer] DatabaseType says.
    static DatabaseConnection* getConnection();
    // Closes and frees a connection made by getConnection(); null is ignored.
    static void releaseConnection(DatabaseConnection* conn);

    virtual bool connect(const char* database, const char* user, const char* password) = 0;
    virtual void close() = 0;
    virtual bool active() = 0;
    virtual bool reset() = 0;
    // True when the statement reached the server and `result` holds its
    // outcome; whether the statement succeeded is for result.failed().
    virtual bool execute(const char* sql, QueryResultPtr& result) = 0;
    virtual bool execute(const std::string& sql, QueryResultPtr& result) = 0;
    virtual const std::string& getErrorMessage() const = 0;

    // Backend choice, read once per process from [SipServer] DatabaseType.
    static std::atomic<bool> m_useNative;
    static std::atomic<bool> m_initialized;
    static osk::Mutex m_mutex;

protected:
    DatabaseConnection() = default;
    ~DatabaseConnection() = default;
};

} // namespace velm

#endif
