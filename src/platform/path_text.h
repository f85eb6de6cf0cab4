#pragma once

#include <string_view>

namespace platform {

/// Separates folder and file in a path that is composed here.
extern const char kPathSeparator;

/// Whether the path ends in "/" or "\". The second byte of a character may have the value of "\" in some code pages; it
/// does not count.
bool endsInSeparator(std::string_view path);

/// The part after the last "/" or "\"; the whole path when it has none.
std::string_view lastPathComponent(std::string_view path);

} // namespace platform
