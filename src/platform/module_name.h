#pragma once

#include <string>

namespace platform {

/// The path of the host's executable, at most 259 bytes; empty when it is unknown.
/// Thread: any. Blocks: never.
std::string hostModuleFileName();

} // namespace platform
