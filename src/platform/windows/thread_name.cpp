#include "platform/thread_name.h"

#include <array>
#include <cstddef>
#include <windows.h>

namespace platform {

void nameThisThread(const char* name) {
    // Looked up, because importing it would keep the DLL from loading on older versions. Version 1607 and Windows Server
    // 2016 have it in kernelbase.dll alone.
    using SetDescription = HRESULT(WINAPI*)(HANDLE thread, PCWSTR description);
    const HMODULE module = GetModuleHandleW(L"kernelbase.dll");
    if (module == nullptr) {
        return;
    }
    const auto setDescription = reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(GetProcAddress(module, "SetThreadDescription")));
    if (setDescription == nullptr) {
        return;
    }
    std::array<wchar_t, 64> wide = {};
    for (std::size_t i = 0; i + 1 < wide.size() && name[i] != '\0'; ++i) {
        wide[i] = static_cast<unsigned char>(name[i]);
    }
    setDescription(GetCurrentThread(), wide.data());
}

} // namespace platform
