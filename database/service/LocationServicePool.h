// LocationServicePool: one LocationService for each thread.
#ifndef VELM_LOCATIONSERVICEPOOL_H
#define VELM_LOCATIONSERVICEPOOL_H

#include "Mutex.h"
#include "Trace.h"

#include <string>
#include <vector>

namespace velm {

class LocationService;

// Hands every thread its own LocationService, made and connected on the
// thread's first request. Call Instance() once before worker threads start:
// it creates the singleton without a lock.
class LocationServicePool {
public:
    static LocationServicePool* Instance();
    // Releases every pooled instance and the singleton; harmless when none.
    // Refused, with an error line, while a PrefixMapMonitor exists: its
    // thread works on an instance of this pool. Destroy the monitor first.
    static void destroy();

    LocationServicePool();
    explicit LocationServicePool(const char* name);
    // Leaves the pooled instances alone: releaseConnections() frees them.
    ~LocationServicePool();
    LocationServicePool(const LocationServicePool&) = delete;
    LocationServicePool& operator=(const LocationServicePool&) = delete;

    // The calling thread's instance; null only when one cannot be made.
    LocationService* getConnection();
    // Frees every pooled instance, the newest first. On the singleton,
    // refused like destroy() while a PrefixMapMonitor exists.
    void releaseConnections();
    // The calling thread's instance or null; call with m_mutex held.
    LocationService* findThreadConnection();

    int getHomeNode_id() const { return m_homeNode_id; }
    void setHomeNode_id(int id) { m_homeNode_id = id; }

private:
    // True, after logging the refusal of `operation`, when this is the
    // singleton and the prefix map monitor may still use one of its instances.
    bool monitorStillRunning(const char* operation);

    osk::Mutex m_mutex;
    std::vector<LocationService*> m_connections;
    std::string m_name;
    Trace m_strace;
    int m_homeNode_id;

    static LocationServicePool* m_pSelf;
};

} // namespace velm

#endif
