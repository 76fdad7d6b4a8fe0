// The thread that rebuilds the digit-prefix tree when prefix_map's change counter grows.
#include "PrefixMapMonitor.h"

#include "AppProperties.h"
#include "Console.h"
#include "LocationService.h"
#include "LocationServicePool.h"
#include "SafeLock.h"

#include <cstdlib>

namespace velm {

PrefixMapMonitor* PrefixMapMonitor::m_instance = nullptr;
std::atomic<bool> PrefixMapMonitor::m_running{false};

PrefixMapMonitor* PrefixMapMonitor::instance() {
    if (m_instance == nullptr)
        m_instance = new PrefixMapMonitor();
    return m_instance;
}

void PrefixMapMonitor::destroy() {
    if (m_instance == nullptr)
        return;
    delete m_instance;
    m_instance = nullptr;
}

bool PrefixMapMonitor::exists() {
    return m_instance != nullptr;
}

bool PrefixMapMonitor::running() {
    return m_running;
}

void PrefixMapMonitor::checkNow() {
    m_pThread->wakeUp();
}

PrefixMapMonitor::PrefixMapMonitor() : m_pThread(new PrefixMapThread()), m_trace("PrefixMapMonitor") {
    // Raised before the start: a thread that fails at once lowers it itself.
    m_running = true;
    if (!m_pThread->start()) {
        m_running = false;
        m_trace.log("cannot start the PrefixMapMonitor thread: prefix_map changes are not picked up");
    }
}

PrefixMapMonitor::~PrefixMapMonitor() {
    if (m_pThread == nullptr)
        return;
    m_trace.prn("interrupting PrefixMapMonitor thread");
    Console::print("interrupting PrefixMapMonitor thread\n");
    m_pThread->shutdown();
    m_pThread->join();
    delete m_pThread;
    m_pThread = nullptr;
    m_trace.prn("done");
    Console::print("done\n");
}

PrefixMapMonitor::PrefixMapThread::PrefixMapThread() : m_shutdown(false), m_trace("PrefixMapMonitor") {}

PrefixMapMonitor::PrefixMapThread::~PrefixMapThread() {
    join();
}

void PrefixMapMonitor::PrefixMapThread::shutdown() {
    m_shutdown = true;
    m_q.deactivate();
}

void PrefixMapMonitor::PrefixMapThread::wakeUp() {
    m_q.enqueue(nullptr);
}

void PrefixMapMonitor::PrefixMapThread::ended(void*) {
    m_running = false;
}

void PrefixMapMonitor::PrefixMapThread::run() {
    osk::DeferredCancellation deferred;
    pthread_cleanup_push(&PrefixMapThread::ended, nullptr);
    poll();
    pthread_cleanup_pop(1);
}

void PrefixMapMonitor::PrefixMapThread::poll() {
    LocationService* service = LocationServicePool::Instance()->getConnection();
    if (service == nullptr) {
        m_trace.prn("failed to connect to location service");
        return;
    }
    const char* configured = AppProperties::get("SipServer", "PrefixMapInterval");
    const int interval = std::atoi(configured != nullptr ? configured : "60");
    m_trace.prn("using prefix map interval of %d seconds", interval);

    int last = 0;
    if (!service->checkPrefixMap(&last).okay()) {
        m_trace.prn("failed to retrieve initial counter value");
        return;
    }
    for (;;) {
        if (m_shutdown)
            return;
        int current = 0;
        if (!service->checkPrefixMap(&current).okay()) {
            m_trace.prn("failed to check the prefix map table");
            return;
        }
        if (current > last) {
            last = current;
            if (!service->recreatePrefixMap().okay()) {
                m_trace.prn("failed to recreate prefix table");
                return;
            }
        }
        int* item = nullptr;
        switch (m_q.dequeue(item, interval, 0)) {
        case osk::Queue<int*>::EMPTY:
            m_trace.prn("prefix map thread checking for updates");
            Console::print("prefix map thread checking for updates\n");
            break;
        case osk::Queue<int*>::INACTIVE:
            m_trace.prn("prefix map thread shutting down");
            return;
        default:
            break;
        }
    }
}

} // namespace velm
