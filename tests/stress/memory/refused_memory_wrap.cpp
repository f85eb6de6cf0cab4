// The program is linked with --wrap for the allocator's functions, so that all that is linked into it asks here.
#include <cstdlib>
#include <new>

#include <execinfo.h>
#include <link.h>

#include "stress/memory/refused_memory.h"

extern "C" const char __executable_start;
extern "C" const char etext;

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
void __real_free(void* memory);
void __real_uv__io_start(void* loop, void* watcher, unsigned events);
}

namespace refused_memory {

namespace {

thread_local int tStartingIo = 0;

} // namespace

void install() {}

int callers(std::uintptr_t* frames, int most) {
    void* addresses[kMaxFrames + 8] = {};
    const int all = backtrace(addresses, kMaxFrames + 8);
    int count = 0;
    for (int i = 3; i < all && count < most; ++i) { // the first ones are this file's
        const auto address = reinterpret_cast<std::uintptr_t>(addresses[i]);
        const auto start = reinterpret_cast<std::uintptr_t>(&__executable_start);
        if (address >= start && address < reinterpret_cast<std::uintptr_t>(&etext)) {
            frames[count++] = address - start;
        }
    }
    return count;
}

// Here libuv keeps its table of descriptors in one block, and ends the process when that cannot grow.
const char* endsTheProcess(const std::uintptr_t* /*frames*/, int /*count*/) {
    return tStartingIo != 0 ? "uv__io_start" : nullptr;
}

namespace {

void* give(void* memory, std::size_t size) {
    given(memory, size);
    return memory;
}

} // namespace

} // namespace refused_memory

using refused_memory::give;
using refused_memory::mayHaveMemory;
using refused_memory::returned;

extern "C" {

void __wrap_uv__io_start(void* loop, void* watcher, unsigned events) {
    ++refused_memory::tStartingIo;
    __real_uv__io_start(loop, watcher, events);
    --refused_memory::tStartingIo;
}

void* __wrap_malloc(std::size_t size) {
    return mayHaveMemory(size) ? give(__real_malloc(size), size) : nullptr;
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return mayHaveMemory(count * size) ? give(__real_calloc(count, size), count * size) : nullptr;
}

void* __wrap_realloc(void* memory, std::size_t size) {
    if (!mayHaveMemory(size)) {
        return nullptr;
    }
    returned(memory);
    return give(__real_realloc(memory, size), size);
}

void __wrap_free(void* memory) {
    returned(memory);
    __real_free(memory);
}
}

void* operator new(std::size_t size) {
    void* memory = mayHaveMemory(size) ? give(__real_malloc(size), size) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return mayHaveMemory(size) ? give(__real_malloc(size), size) : nullptr;
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    void* memory = nullptr;
    if (!mayHaveMemory(size) || posix_memalign(&memory, static_cast<std::size_t>(alignment), size) != 0) {
        throw std::bad_alloc();
    }
    return give(memory, size);
}

void operator delete(void* memory) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    __wrap_free(memory);
}

void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    __wrap_free(memory);
}
