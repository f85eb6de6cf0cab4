#include "platform/module.h"

#include <windows.h>

namespace platform {

void keepModuleLoaded() {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&keepModuleLoaded), &module);
}

} // namespace platform
