#include "support/api/refusing_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace support {

namespace {

std::atomic<bool> refusing{false};

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

} // namespace

// A sanitizer's, where clang has linked it into the program.
extern "C" [[gnu::weak]] int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*),
                                                          void*);

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                              void* argument) noexcept {
    // The next one in the order of loading is the C library's, or GCC's sanitizers' before it.
    static const Create kNext = __interceptor_pthread_create != nullptr
                                    ? &__interceptor_pthread_create
                                    : reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return refusing.load() ? EAGAIN : kNext(thread, attributes, function, argument);
}

RefusingThreads::RefusingThreads() {
    refusing = true;
}

RefusingThreads::~RefusingThreads() {
    refusing = false;
}

} // namespace support
