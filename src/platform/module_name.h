#pragma once

#include <string>

namespace platform {

/// The file name, with its folder, of the host's executable, at most 259 bytes; empty when it cannot be had.
/// Thread: any. Blocks: never.
std::string hostModuleFileName();

} // namespace platform
