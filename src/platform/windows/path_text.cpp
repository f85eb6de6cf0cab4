#include "platform/path_text.h"

#include <windows.h>

namespace platform {

namespace {

/// The index after the last separator; 0 when there is none. Walks whole characters: in the code pages of East Asia the
/// second byte of a character may be that of "\".
std::size_t afterLastSeparator(std::string_view path) {
    std::size_t after = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '\\' || path[i] == '/') {
            after = i + 1;
        } else if (IsDBCSLeadByte(static_cast<BYTE>(path[i])) != FALSE) {
            ++i;
        }
    }
    return after;
}

} // namespace

const char kPathSeparator = '\\';

bool endsInSeparator(std::string_view path) {
    return !path.empty() && afterLastSeparator(path) == path.size();
}

std::string_view lastPathComponent(std::string_view path) {
    return path.substr(afterLastSeparator(path));
}

} // namespace platform
