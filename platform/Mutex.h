// Mutex: a plain POSIX mutex.
#ifndef OSK_MUTEX_H
#define OSK_MUTEX_H

#include <pthread.h>

namespace osk {

// A plain (non-recursive) POSIX mutex.
class Mutex {
public:
    Mutex();
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock();
    void unlock();
    bool tryLock();
    pthread_mutex_t* native() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

} // namespace osk

#endif
