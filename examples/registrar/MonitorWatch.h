// MonitorWatch: brings the prefix-map monitor back after a database failure has ended it.
#ifndef VELM_REGISTRAR_MONITORWATCH_H
#define VELM_REGISTRAR_MONITORWATCH_H

#include "Queue.h"
#include "Thread.h"
#include "Trace.h"

namespace registrar {

// A thread that looks at velm::PrefixMapMonitor::running() every
// `firstDelay` seconds. The monitor ends for good at its first database
// failure, and a failed rebuild leaves no digit-prefix tree; once it has
// ended, the watch reads the change counter (a statement that must really
// run), rebuilds the tree from the table as it is now and starts a new
// monitor. A failed attempt waits twice as long as the one before, up to
// `maxDelay` seconds, so a database that stays away is not hammered; one that
// returns has its digit routes back within the current delay.
//
// The watch takes its own LocationService from the pool, which must outlive
// it. It is the only caller of PrefixMapMonitor::instance() and destroy()
// while it runs: the host starts it after the first instance() and stops it
// before the last destroy().
class MonitorWatch : public osk::Thread {
public:
    MonitorWatch(int firstDelay, int maxDelay);
    ~MonitorWatch() override;
    MonitorWatch(const MonitorWatch&) = delete;
    MonitorWatch& operator=(const MonitorWatch&) = delete;

    // Wakes the thread and waits for it; harmless when it is not running.
    void stop();

protected:
    void run() override;

private:
    // True when the monitor runs again.
    bool restart();

    const int m_firstDelay;
    const int m_maxDelay;
    osk::Queue<int*> m_wake;
    velm::Trace m_trace;
};

} // namespace registrar

#endif
