#include "platform/thread_block.h"

namespace platform {

void* threadBlock() {
    alignas(std::max_align_t) static thread_local unsigned char block[kThreadBlockSize];
    return block;
}

} // namespace platform
