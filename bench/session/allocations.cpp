#include "allocations.h"

#include <atomic>
#include <cstddef>

// glibc lets a program put its own functions in the place of these, and keeps its own under the names with the prefix.
// NOLINTBEGIN(clang-diagnostic-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* malloc(std::size_t size);
void* calloc(std::size_t count, std::size_t size);
void* realloc(void* old, std::size_t size);
}

namespace {

// Not atomic additions, which would cost as much as what is measured: the threads that are measured do not run at once.
std::atomic<std::uint64_t> gAllocations{0};

void count() {
    gAllocations.store(gAllocations.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

} // namespace

void* malloc(std::size_t size) {
    count();
    return __libc_malloc(size);
}

void* calloc(std::size_t n, std::size_t size) {
    count();
    return __libc_calloc(n, size);
}

void* realloc(void* old, std::size_t size) {
    count();
    return __libc_realloc(old, size);
}

// NOLINTEND(clang-diagnostic-reserved-identifier,readability-identifier-naming)

std::uint64_t allocations() {
    return gAllocations.load(std::memory_order_relaxed);
}
