#include "platform/path_text.h"

#include <windows.h>

namespace platform {

namespace {

/// Behind the last separator; 0 when there is none. Walks whole characters: in the code pages of East Asia the second
/// byte of a character may be the number of "\".
std::size_t behindLastSeparator(std::string_view path) {
    std::size_t behind = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\' || path[i] == '/') {
            behind = i + 1;
        } else if (IsDBCSLeadByte(static_cast<BYTE>(path[i])) != FALSE) {
            ++i;
        }
    }
    return behind;
}

} // namespace

const char kPathSeparator = '\\';

bool endsInSeparator(std::string_view path) {
    return !path.empty() && behindLastSeparator(path) == path.size();
}

std::string_view lastPathComponent(std::string_view path) {
    return path.substr(behindLastSeparator(path));
}

} // namespace platform
