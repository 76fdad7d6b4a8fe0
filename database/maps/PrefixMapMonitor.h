// PrefixMapMonitor: the process's one thread that keeps the digit-prefix tree in step with prefix_map.
#ifndef VELM_PREFIXMAPMONITOR_H
#define VELM_PREFIXMAPMONITOR_H

#include "Queue.h"
#include "Thread.h"
#include "Trace.h"

#include <atomic>

namespace velm {

// The process's one thread that keeps the digit-prefix tree of
// LocationService in step with the prefix_map table.
//
// Writers of prefix_map raise update_ctr of the 'prefix_map' row of
// trigger_notify (the schema's trigger does so). Every [SipServer]
// PrefixMapInterval seconds (default 60) the thread reads that counter and
// rebuilds the tree once when it has grown since the last reading, however
// much; a counter that went down causes no rebuild. The counter read at
// start only sets the base: the host builds the first tree itself with
// LocationService::createPrefixMap().
//
// Life cycle for a hosting server:
//   1. LocationServicePool::Instance(), before any worker thread starts;
//   2. PrefixMapMonitor::instance(), once, from the same thread: starts the
//      thread, which takes its own LocationService from the pool;
//   3. at shutdown PrefixMapMonitor::destroy(), which wakes the thread and
//      waits for it, and only then LocationServicePool::destroy(). The pool
//      must outlive the monitor; destroying the pool while a monitor exists
//      is refused with an error line, as it would pull the thread's
//      connection from under it.
//
// Failures end the thread for good; it is not restarted:
//   - a failed counter check ends it and leaves the tree as it was;
//   - a failed rebuild ends it and leaves no tree: digit-map lookups then
//     answer ok with no contacts until the process builds a tree again.
// A host that wants the monitor back watches running(): once it is false
// the host builds the tree again, then destroy() and instance() start a new
// thread.
// The trace channel is "PrefixMapMonitor".
class PrefixMapMonitor {
public:
    // The monitor, created with its thread running on the first call. Not
    // locked: the first call must come from one thread.
    static PrefixMapMonitor* instance();
    // Stops and joins the thread and deletes the monitor; harmless when none.
    static void destroy();
    // True between instance() and destroy().
    static bool exists();
    // True from instance() until the thread has ended, whether by a failure,
    // by destroy() or by cancellation. Any thread may ask.
    static bool running();

    // Makes the thread check the counter now instead of at the end of its
    // interval, e.g. after the host changed prefix_map itself.
    void checkNow();

private:
    class PrefixMapThread : public osk::Thread {
    public:
        PrefixMapThread();
        ~PrefixMapThread() override;

        // Ends a waiting thread at once, a busy one at the top of its next
        // cycle.
        void shutdown();
        void wakeUp();

    protected:
        void run() override;

    private:
        void poll();
        // Clean-up handler: the thread has ended, however it ended.
        static void ended(void* unused);

        std::atomic<bool> m_shutdown;
        osk::Queue<int*> m_q;
        Tracer m_trace;
    };

    PrefixMapMonitor();
    ~PrefixMapMonitor();
    PrefixMapMonitor(const PrefixMapMonitor&) = delete;
    PrefixMapMonitor& operator=(const PrefixMapMonitor&) = delete;

    PrefixMapThread* m_pThread;
    Tracer m_trace;

    static PrefixMapMonitor* m_instance;
    static std::atomic<bool> m_running;
};

} // namespace velm

#endif
