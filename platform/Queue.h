// Queue: a queue that threads wait on with a time-out.
#ifndef OSK_QUEUE_H
#define OSK_QUEUE_H

#include "Mutex.h"
#include "SafeLock.h"

#include <pthread.h>

#include <cstdio>
#include <ctime>
#include <deque>

namespace osk {

// A queue that threads wait on with a time-out. It starts active and empty;
// once deactivated it stays so, holds nothing and takes nothing. The wait is
// measured on the monotonic clock and is cancellation-safe: a thread cancelled
// while waiting leaves the queue's mutex free.
template <class T>
class Queue {
public:
    enum DequeueResult { ITEM = 0, EMPTY = 1, INACTIVE = 2 };

    Queue() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_cond, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Queue() { pthread_cond_destroy(&m_cond); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    // Appends `item` and wakes one waiting thread; false (item dropped) when
    // the queue is not active.
    bool enqueue(const T& item) {
        return withCancelSafeLock(m_mutex, [&] {
            if (!m_active)
                return false;
            m_items.push_back(item);
            pthread_cond_signal(&m_cond);
            return true;
        });
    }

    // Takes the first item into `item`, waiting for one at most `seconds` and
    // `usec` microseconds. Returns 0 (ITEM) when an item was taken, 1 (EMPTY)
    // on time-out or when woken with the queue still empty, and 2 (INACTIVE)
    // at once when the queue is not active, also when it is deactivated during
    // the wait.
    int dequeue(T& item, int seconds, int usec) {
        timespec deadline;
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        long nanoseconds = deadline.tv_nsec + static_cast<long>(usec) * 1000L;
        deadline.tv_sec += seconds + nanoseconds / 1000000000L;
        deadline.tv_nsec = nanoseconds % 1000000000L;
        if (deadline.tv_nsec < 0) {
            deadline.tv_nsec += 1000000000L;
            --deadline.tv_sec;
        }
        return withCancelSafeLock(m_mutex, [&] {
            if (m_active && m_items.empty())
                pthread_cond_timedwait(&m_cond, m_mutex.native(), &deadline);
            if (!m_active)
                return static_cast<int>(INACTIVE);
            if (m_items.empty())
                return static_cast<int>(EMPTY);
            item = m_items.front();
            m_items.pop_front();
            std::printf("Queue::dequeued item: queue size %d\n", static_cast<int>(m_items.size()));
            return static_cast<int>(ITEM);
        });
    }

    // Marks the queue inactive, drops its items and wakes every waiting thread.
    void deactivate() {
        withCancelSafeLock(m_mutex, [&] {
            m_active = false;
            m_items.clear();
            pthread_cond_broadcast(&m_cond);
        });
    }

    bool isActive() {
        return withCancelSafeLock(m_mutex, [&] { return m_active; });
    }

private:
    Mutex m_mutex;
    pthread_cond_t m_cond;
    bool m_active = true;
    std::deque<T> m_items;
};

} // namespace osk

#endif
