#include "platform/thread_block.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

namespace platform {

namespace {

void WINAPI freeBlock(void* block) {
    std::free(block);
}

/// The system's number for the blocks, asked for with the first line and kept until the process ends. Constant-initialised: the
/// lock that guards another static asks for memory of its own.
DWORD blockIndex() {
    static constinit std::atomic<DWORD> known{FLS_OUT_OF_INDEXES};
    DWORD index = known.load();
    if (index == FLS_OUT_OF_INDEXES) {
        const DWORD made = FlsAlloc(freeBlock);
        if (known.compare_exchange_strong(index, made)) {
            return made;
        }
        FlsFree(made); // another thread was quicker
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
