// The watch that restarts the prefix-map monitor with a growing delay between attempts.
#include "MonitorWatch.h"

#include "LocationService.h"
#include "LocationServicePool.h"
#include "PrefixMapMonitor.h"
#include "SafeLock.h"

#include <algorithm>

namespace registrar {

MonitorWatch::MonitorWatch(int firstDelay, int maxDelay)
    : m_firstDelay(firstDelay), m_maxDelay(std::max(firstDelay, maxDelay)), m_trace("Registrar") {}

MonitorWatch::~MonitorWatch() {
    stop();
}

void MonitorWatch::stop() {
    m_wake.deactivate();
    join();
}

void MonitorWatch::run() {
    // A host that cancels the thread has it leave at a wait or inside a
    // library call, whose locks their own clean-up handlers release.
    osk::DeferredCancellation deferred;
    int delay = m_firstDelay;
    int* item = nullptr;
    while (m_wake.dequeue(item, delay, 0) != osk::Queue<int*>::INACTIVE) {
        if (velm::PrefixMapMonitor::running() || restart()) {
            delay = m_firstDelay;
            continue;
        }
        delay = std::min(delay * 2, m_maxDelay);
        m_trace.log("the prefix map monitor could not be restarted; next attempt in %d s", delay);
    }
}

bool MonitorWatch::restart() {
    velm::LocationService* service = velm::LocationServicePool::Instance()->getConnection();
    if (service == nullptr)
        return false;
    // The counter read proves that statements run again; the tree is built
    // anew, as the changes made while the monitor was gone were not seen.
    int counter = 0;
    velm::DatabaseResult result = service->checkPrefixMap(&counter);
    if (result.okay())
        result = service->recreatePrefixMap();
    if (!result.okay())
        return false;
    velm::PrefixMapMonitor::destroy();
    velm::PrefixMapMonitor::instance();
    m_trace.log("prefix map rebuilt and its monitor restarted");
    return velm::PrefixMapMonitor::running();
}

} // namespace registrar
