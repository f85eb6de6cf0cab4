#include "transport/mutex.h"

#include <cstdint>
#include <new>

namespace {

/// libuv fails here only when the system is out of memory or handles.
void require(int result) {
    if (result != 0) {
        throw std::bad_alloc(); // GCOVR_EXCL_LINE the system is out of memory or handles
    }
}

} // namespace

OMutex::OMutex() : mMutex(std::make_unique<uv_mutex_t>()) {
    require(uv_mutex_init(mMutex.get()));
}

OMutex::~OMutex() {
    uv_mutex_destroy(mMutex.get());
}

void OMutex::lock() {
    uv_mutex_lock(mMutex.get());
}

void OMutex::unlock() {
    uv_mutex_unlock(mMutex.get());
}

OCondition::OCondition() {
    require(uv_cond_init(&mCondition));
}

OCondition::~OCondition() {
    uv_cond_destroy(&mCondition);
}

void OCondition::wait(OMutex& held) {
    uv_cond_wait(&mCondition, held.mMutex.get());
}

void OCondition::waitFor(OMutex& held, std::chrono::nanoseconds limit) {
    uv_cond_timedwait(&mCondition, held.mMutex.get(), static_cast<std::uint64_t>(limit.count()));
}

void OCondition::notifyAll() {
    uv_cond_broadcast(&mCondition);
}
