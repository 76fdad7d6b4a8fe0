// SafeLock: holds a mutex for its lifetime and may release it early, exactly once.
#ifndef OSK_SAFELOCK_H
#define OSK_SAFELOCK_H

#include "Mutex.h"

#include <pthread.h>

#include <optional>
#include <type_traits>
#include <utility>

namespace osk {

// Holds a mutex for its lifetime. unlock() may be called early, also from a
// thread-cancellation clean-up handler; the lock is then released exactly once.
class SafeLock {
public:
    explicit SafeLock(Mutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~SafeLock() { unlock(); }
    SafeLock(const SafeLock&) = delete;
    SafeLock& operator=(const SafeLock&) = delete;

    void unlock() {
        if (m_held) {
            m_held = false;
            m_mutex.unlock();
        }
    }

    // Clean-up handler for pthread_cleanup_push; `safeLock` is a SafeLock*.
    static void release(void* safeLock) { static_cast<SafeLock*>(safeLock)->unlock(); }

private:
    Mutex& m_mutex;
    bool m_held = true;
};

// Switches the calling thread to deferred cancellation for its lifetime.
class DeferredCancellation {
public:
    DeferredCancellation() { pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &m_previous); }
    ~DeferredCancellation() {
        int ignored;
        pthread_setcanceltype(m_previous, &ignored);
    }
    DeferredCancellation(const DeferredCancellation&) = delete;
    DeferredCancellation& operator=(const DeferredCancellation&) = delete;

private:
    int m_previous = PTHREAD_CANCEL_DEFERRED;
};

// Runs `body` holding `mutex`, the way every shared structure is locked here:
// cancellation deferred, and a clean-up handler that releases the mutex if the
// hosting server cancels the thread inside `body`. Returns what `body` returns.
template <class Body>
auto withCancelSafeLock(Mutex& mutex, Body&& body) -> decltype(body()) {
    using Result = decltype(body());
    DeferredCancellation deferred;
    SafeLock lock(mutex);
    if constexpr (std::is_void_v<Result>) {
        pthread_cleanup_push(&SafeLock::release, &lock);
        body();
        pthread_cleanup_pop(1);
    } else {
        std::optional<Result> result;
        pthread_cleanup_push(&SafeLock::release, &lock);
        result.emplace(body());
        pthread_cleanup_pop(1);
        return std::move(*result);
    }
}

} // namespace osk

#endif
