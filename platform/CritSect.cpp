// The recursive POSIX mutex behind CritSect.
#include "CritSect.h"

namespace osk {

CritSect::CritSect() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

CritSect::~CritSect() {
    pthread_mutex_destroy(&m_mutex);
}

} // namespace osk
