#pragma once

#include <cstddef>

namespace platform {

inline constexpr std::size_t kThreadBlockSize = 512;

/// Memory of the calling thread's own, all zeros at first, freed when the thread ends; aligned for any type. Null when
/// there is none: what the compiler makes of `thread_local` ends the process then on some systems. Blocks: never.
void* threadBlock();

} // namespace platform
