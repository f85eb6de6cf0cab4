#pragma once

#include <string_view>

namespace platform {

/// What stands between folder and file when a path is put together.
extern const char kPathSeparator;

/// Whether the path ends in "/" or "\". In code pages whose second bytes may have the value of "\" only a whole
/// character counts.
bool endsInSeparator(std::string_view path);

/// What follows the last "/" or "\"; the whole path when it has none.
std::string_view lastPathComponent(std::string_view path);

} // namespace platform
