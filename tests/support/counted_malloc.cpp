#include "support/counted_malloc.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace support {

namespace {

// Constant-initialised: requests come before the first constructor.
std::atomic<bool> gCounting{false};
std::atomic<int> gRequests{0};
std::atomic<int> gFailing{0};

bool mayHaveMemory() {
    if (!gCounting) {
        return true;
    }
    return ++gRequests != gFailing;
}

} // namespace

CountedMalloc::CountedMalloc(int failing) {
    gRequests = 0;
    gFailing = failing;
    gCounting = true;
}

CountedMalloc::~CountedMalloc() {
    gCounting = false;
}

int CountedMalloc::stop() {
    gCounting = false;
    return gRequests;
}

} // namespace support

using support::mayHaveMemory;

// The linker makes these names out of the option --wrap.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);

void* __wrap_malloc(std::size_t size) {
    return mayHaveMemory() ? __real_malloc(size) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return mayHaveMemory() ? __real_calloc(count, size) : nullptr;
}

void* __wrap_realloc(void* memory, std::size_t size) {
    return mayHaveMemory() ? __real_realloc(memory, size) : nullptr;
}
}

void* operator new(std::size_t size) {
    void* memory = mayHaveMemory() ? __real_malloc(size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
