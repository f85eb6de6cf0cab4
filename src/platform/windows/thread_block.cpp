#include "platform/thread_block.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

namespace platform {

namespace {

void WINAPI freeBlock(void* block) {
    std::free(block);
}

/// The index of the blocks in fiber-local storage, allocated on first use and kept until the process ends. Initialised
/// at compile time: the guard of a dynamic static may allocate.
DWORD blockIndex() {
    static constinit std::atomic<DWORD> known{FLS_OUT_OF_INDEXES};
    DWORD index = known.load();
    if (index == FLS_OUT_OF_INDEXES) {
        const DWORD made = FlsAlloc(freeBlock);
        if (known.compare_exchange_strong(index, made)) {
            return made;
        }
        FlsFree(made); // another thread was first
    }
    return index;
}

} // namespace

void* threadBlock() {
    const DWORD index = blockIndex();
    if (index == FLS_OUT_OF_INDEXES) {
        return nullptr;
    }
    void* block = FlsGetValue(index);
    if (block == nullptr) {
        block = std::calloc(1, kThreadBlockSize);
        if (block != nullptr && FlsSetValue(index, block) == FALSE) {
            std::free(block);
            block = nullptr;
        }
    }
    return block;
}

} // namespace platform
