#include "platform/service_process.h"

#include <array>
#include <cstdlib>

namespace platform {

std::wstring widenLogDir(const char* logDir) {
    std::array<wchar_t, 256> wide = {};
    const std::size_t length = std::mbstowcs(wide.data(), logDir, wide.size() - 1);
    if (length == static_cast<std::size_t>(-1)) {
        return {};
    }
    return {wide.data(), length};
}

std::wstring serviceCommandLine(const std::wstring& hostExecutable, const char* logDir, int logLevel) {
    const std::wstring directory = hostExecutable.substr(0, hostExecutable.rfind(L'\\') + 1);
    return directory + L"QuPCAudio.exe " + widenLogDir(logDir) + L" " + std::to_wstring(logLevel);
}

} // namespace platform
