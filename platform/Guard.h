// Guard: holds a CritSect or a Mutex for its scope, safe against thread cancellation.
#ifndef OSK_GUARD_H
#define OSK_GUARD_H

#include "CritSect.h"
#include "Mutex.h"
#include "SafeLock.h"

#include <pthread.h>

namespace osk {

// Holds a CritSect or a Mutex for its scope, with thread cancellation deferred
// meanwhile. If the thread is cancelled at a cancellation point inside the
// scope, the unwinding of the thread runs the destructor, which releases the
// lock; the lock is never left held by a cancelled thread.
class Guard {
public:
    explicit Guard(CritSect& section) : m_mutex(section.native()) { pthread_mutex_lock(m_mutex); }
    explicit Guard(Mutex& mutex) : m_mutex(mutex.native()) { pthread_mutex_lock(m_mutex); }
    ~Guard() { pthread_mutex_unlock(m_mutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    DeferredCancellation m_deferred;
    pthread_mutex_t* m_mutex;
};

} // namespace osk

#endif
