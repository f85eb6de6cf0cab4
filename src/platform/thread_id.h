#pragma once

#include <cstdint>

namespace platform {

/// The system's id of the calling thread, as debuggers show it.
/// Thread: any. Blocks: never. The first call of a thread may enter the kernel, later ones do not.
std::uint32_t currentThreadId();

} // namespace platform
