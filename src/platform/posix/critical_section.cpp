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
    ::pthread_mutex_init(new (mLock) pthread_mutex_t, nullptr);
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
