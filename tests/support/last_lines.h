#pragma once

#include <cstddef>
#include <string_view>

namespace support {

/// As much of a log as helps with a failure.
inline constexpr std::size_t kLinesShown = 50;

/// The last lines of a text, at most so many.
inline std::string_view lastLines(std::string_view text, std::size_t most = kLinesShown) {
    std::size_t at = text.empty() ? 0 : text.size() - 1; // the last line's own end counts for nothing
    for (std::size_t ends = 0; at > 0; --at) {
        if (text[at - 1] == '\n' && ++ends == most) {
            break;
        }
    }
    return text.substr(at);
}

} // namespace support
