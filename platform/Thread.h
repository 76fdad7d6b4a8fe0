// Thread: a POSIX thread that runs a subclass's run().
#ifndef OSK_THREAD_H
#define OSK_THREAD_H

#include <pthread.h>

namespace osk {

// A POSIX thread that runs the virtual run() of a subclass. The thread starts
// with start() and is waited for with join(). A subclass whose run() uses its
// own members joins in its own destructor; this destructor joins a thread
// still unjoined only as a last resort, when the subclass is already gone.
class Thread {
public:
    Thread() = default;
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // False when the thread was started before or cannot be created.
    bool start();
    // Waits until run() has returned or the thread was cancelled; false when
    // the thread is not started or already joined.
    bool join();
    // Asks for cancellation, which takes effect at the thread's next
    // cancellation point; join() then waits for it. False when not running.
    bool cancel();

protected:
    virtual void run() = 0;

private:
    static void* entry(void* self);

    pthread_t m_thread{};
    bool m_started = false;
    bool m_joined = false;
};

} // namespace osk

#endif
