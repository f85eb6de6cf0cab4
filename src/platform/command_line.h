#pragma once

#include <string>
#include <vector>

namespace platform {

/// `text` in wide characters as the current C locale converts it, truncated to 255 of them; empty when it cannot be
/// converted.
std::wstring widenArgument(const char* text);

/// A Windows command line: the `hostExecutable` up to its last backslash, the program's name, and the widened arguments
/// with a space before each. Nothing is quoted: a program that reads what follows its own name takes it as it is.
std::wstring commandLine(const std::wstring& hostExecutable, const char* program,
                         const std::vector<std::string>& arguments);

} // namespace platform
