#include "platform/semaphore.h"

#include "platform/timeout.h"

#include <pthread.h>

#include <ctime>

namespace platform {

/// A count under a mutex. The timed wait of the system's own semaphore follows the wall clock: setting that back would
/// stop the log.
struct Semaphore::System {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed;
    int count;
    int maximum;
};

Semaphore::Semaphore(int initialCount, int maximumCount) : mSystem(new System) {
    mSystem->count = initialCount;
    mSystem->maximum = maximumCount;
    pthread_condattr_t attributes;
    ::pthread_condattr_init(&attributes);
    ::pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    ::pthread_cond_init(&mSystem->changed, &attributes);
    ::pthread_condattr_destroy(&attributes);
}

Semaphore::~Semaphore() {
    ::pthread_cond_destroy(&mSystem->changed);
    ::pthread_mutex_destroy(&mSystem->mutex);
}

bool Semaphore::post() {
    ::pthread_mutex_lock(&mSystem->mutex);
    const bool below = mSystem->count < mSystem->maximum;
    mSystem->count += below ? 1 : 0;
    ::pthread_mutex_unlock(&mSystem->mutex);
    if (below) {
        ::pthread_cond_signal(&mSystem->changed);
    }
    return below;
}

bool Semaphore::wait(unsigned milliseconds) {
    timespec end{};
    ::clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    end.tv_sec += milliseconds / 1000 + end.tv_nsec / 1000000000;
    end.tv_nsec %= 1000000000;
    ::pthread_mutex_lock(&mSystem->mutex);
    int result = 0;
    while (mSystem->count == 0 && result == 0) {
        result = milliseconds == kNoTimeout
                     ? ::pthread_cond_wait(&mSystem->changed, &mSystem->mutex)
                     : ::pthread_cond_timedwait(&mSystem->changed, &mSystem->mutex, &end);
    }
    const bool taken = mSystem->count > 0;
    mSystem->count -= taken ? 1 : 0;
    ::pthread_mutex_unlock(&mSystem->mutex);
    return taken;
}

} // namespace platform
