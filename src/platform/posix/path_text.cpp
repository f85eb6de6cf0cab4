#include "platform/path_text.h"

namespace platform {

const char kPathSeparator = '/';

bool endsInSeparator(std::string_view path) {
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

std::string_view lastPathComponent(std::string_view path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

} // namespace platform
