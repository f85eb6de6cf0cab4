#include "transport/mutex.h"

#include <new>

OMutex::OMutex() : mMutex(std::make_unique<uv_mutex_t>()) {
    if (uv_mutex_init(mMutex.get()) != 0) {
        throw std::bad_alloc(); // the only failure libuv has here is a system out of memory or handles
    }
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
