#pragma once

#include <cstddef>

namespace platform {

inline constexpr std::size_t kThreadBlockSize = 512;

/// Memory of the calling thread, zeroed, aligned for any type, and freed when the thread ends. Used instead of
/// `thread_local`, which ends the process on an allocation failure on some systems. Blocks: never. Returns: null on an
/// allocation failure.
void* threadBlock();

} // namespace platform
