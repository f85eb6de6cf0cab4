#pragma once

#include <cstdint>

namespace platform {

/// The operating system's number of the calling thread, as debuggers and process viewers show it.
/// Thread: any. Blocks: never. The first call of a thread may enter the kernel, later ones do not.
std::uint32_t currentThreadId();

} // namespace platform
