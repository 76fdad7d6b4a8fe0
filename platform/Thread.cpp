// Starting, joining and cancelling a POSIX thread that runs a subclass's run().
#include "Thread.h"

namespace osk {

Thread::~Thread() {
    join();
}

void* Thread::entry(void* self) {
    static_cast<Thread*>(self)->run();
    return nullptr;
}

bool Thread::start() {
    if (m_started)
        return false;
    m_started = pthread_create(&m_thread, nullptr, &Thread::entry, this) == 0;
    return m_started;
}

bool Thread::join() {
    if (!m_started || m_joined)
        return false;
    m_joined = true;
    return pthread_join(m_thread, nullptr) == 0;
}

bool Thread::cancel() {
    return m_started && !m_joined && pthread_cancel(m_thread) == 0;
}

} // namespace osk
