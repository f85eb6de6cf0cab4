#pragma once

#include <string>

namespace platform {

/// What stands between folder and file when a path is put together.
extern const char kPathSeparator;

/// Whether the path ends in "/" or "\". In code pages whose second bytes may have the value of "\" only a whole
/// character counts.
bool endsInSeparator(const std::string& path);

/// What follows the last "/" or "\"; the whole path when it has none.
std::string lastPathComponent(const std::string& path);

} // namespace platform
