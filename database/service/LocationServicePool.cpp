// The per-thread pool of LocationService instances.
#include "LocationServicePool.h"

#include "LocationService.h"
#include "PrefixMapMonitor.h"
#include "SafeLock.h"

#include <pthread.h>

namespace velm {

LocationServicePool* LocationServicePool::m_pSelf = nullptr;

namespace {

// The trace texts print the thread id with "%xl": hexadecimal digits followed
// by a letter l, as operators know them.
unsigned threadIdText(pthread_t id) {
    return static_cast<unsigned>(id);
}

} // namespace

bool LocationServicePool::monitorStillRunning(const char* operation) {
    if (this != m_pSelf || !PrefixMapMonitor::exists())
        return false;
    m_strace.log("LocationServicePool::%s() refused: the PrefixMapMonitor thread still uses a connection of the pool; "
                 "call PrefixMapMonitor::destroy() first",
                 operation);
    return true;
}

LocationServicePool* LocationServicePool::Instance() {
    if (m_pSelf == nullptr)
        m_pSelf = new LocationServicePool();
    return m_pSelf;
}

void LocationServicePool::destroy() {
    if (m_pSelf == nullptr || m_pSelf->monitorStillRunning("destroy"))
        return;
    m_pSelf->releaseConnections();
    delete m_pSelf;
    m_pSelf = nullptr;
}

LocationServicePool::LocationServicePool() : LocationServicePool(nullptr) {}

LocationServicePool::LocationServicePool(const char* name)
    : m_name(name != nullptr ? name : ""), m_strace("LocationService"), m_homeNode_id(0) {}

LocationServicePool::~LocationServicePool() = default;

LocationService* LocationServicePool::getConnection() {
    // The first request of a thread connects while holding the pool lock, so
    // it holds up every other thread's request for that long.
    LocationService* service = osk::withCancelSafeLock(m_mutex, [this] {
        LocationService* found = findThreadConnection();
        if (found != nullptr)
            return found;
        LocationService* created = LocationService::getConnection();
        if (created == nullptr)
            return created;
        pthread_t self = pthread_self();
        m_strace.prn("LocationServicePool::getConnection() creating new connection: threadid=%xl\n", threadIdText(self));
        created->m_threadId = self;
        m_connections.push_back(created);
        m_strace.prn("LocationServicePool::getConnection() creating new connection: threadid=%xl, Total conn: %d\n",
                     threadIdText(self), static_cast<int>(m_connections.size()));
        return created;
    });
    m_strace.prn("pool %s: using existing connection", m_name.c_str());
    return service;
}

void LocationServicePool::releaseConnections() {
    if (monitorStillRunning("releaseConnections"))
        return;
    osk::withCancelSafeLock(m_mutex, [this] {
        m_strace.prn("releasing %d database connections from pool %s", static_cast<int>(m_connections.size()),
                     m_name.c_str());
        while (!m_connections.empty()) {
            m_strace.prn("releasing database connection...");
            delete m_connections.back();
            m_connections.pop_back();
        }
    });
}

LocationService* LocationServicePool::findThreadConnection() {
    pthread_t self = pthread_self();
    for (LocationService* service : m_connections)
        if (pthread_equal(service->m_threadId, self))
            return service;
    return nullptr;
}

} // namespace velm
