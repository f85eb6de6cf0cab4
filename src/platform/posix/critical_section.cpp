#include "platform/critical_section.h"

#include <pthread.h>

#include <new>

namespace platform {

namespace {

pthread_mutex_t* mutex(unsigned char* storage) {
    return std::launder(reinterpret_cast<pthread_mutex_t*>(storage));
}

} // namespace

CriticalSection::CriticalSection() {
    static_assert(sizeof(pthread_mutex_t) <= sizeof mLock);
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
#ifdef __GLIBC__
    // Spins first: these locks are held for less time than a switch to another thread takes.
    ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ADAPTIVE_NP);
#endif
    ::pthread_mutex_init(new (mLock) pthread_mutex_t, &attributes);
    ::pthread_mutexattr_destroy(&attributes);
}

CriticalSection::~CriticalSection() {
    ::pthread_mutex_destroy(mutex(mLock));
}

void CriticalSection::lock() {
    ::pthread_mutex_lock(mutex(mLock));
}

void CriticalSection::unlock() {
    ::pthread_mutex_unlock(mutex(mLock));
}

} // namespace platform
