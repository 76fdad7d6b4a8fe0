// CritSect: a critical section on a recursive POSIX mutex.
#ifndef OSK_CRITSECT_H
#define OSK_CRITSECT_H

#include <pthread.h>

namespace osk {

// A critical section: a recursive POSIX mutex, so code that holds it may call
// other code that takes it again. Hold it through an osk::Guard.
class CritSect {
public:
    CritSect();
    ~CritSect();
    CritSect(const CritSect&) = delete;
    CritSect& operator=(const CritSect&) = delete;

    void enter() { pthread_mutex_lock(&m_mutex); }
    void leave() { pthread_mutex_unlock(&m_mutex); }
    pthread_mutex_t* native() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

} // namespace osk

#endif
