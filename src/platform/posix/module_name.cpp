#include "platform/module_name.h"

#include <unistd.h>

namespace platform {

std::string hostModuleFileName() {
    char name[259];
    const ssize_t length = ::readlink("/proc/self/exe", name, sizeof name);
    return length < 0 ? std::string() : std::string(name, static_cast<std::size_t>(length));
}

} // namespace platform
