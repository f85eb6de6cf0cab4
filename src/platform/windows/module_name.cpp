#include "platform/module_name.h"

#include <windows.h>

namespace platform {

std::string hostModuleFileName() {
    char name[260];
    const DWORD length = GetModuleFileNameA(nullptr, name, sizeof name);
    // A longer name fills the buffer and is cut without room for its end.
    return std::string(name, length < sizeof name ? length : sizeof name - 1);
}

} // namespace platform
