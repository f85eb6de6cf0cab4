#include "platform/path_text.h"

namespace platform {

const char kPathSeparator = '/';

bool endsInSeparator(const std::string& path) {
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

std::string lastPathComponent(const std::string& path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

} // namespace platform
