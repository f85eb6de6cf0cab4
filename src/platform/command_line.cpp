#include "platform/command_line.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace platform {

std::wstring widenArgument(const char* text) {
    std::array<wchar_t, 256> wide = {};
    const std::size_t length = std::mbstowcs(wide.data(), text, wide.size() - 1);
    if (length == static_cast<std::size_t>(-1)) {
        return {};
    }
    return {wide.data(), length};
}

std::wstring commandLine(const std::wstring& hostExecutable, const char* program,
                         const std::vector<std::string>& arguments) {
    std::wstring line = hostExecutable.substr(0, hostExecutable.rfind(L'\\') + 1);
    line.append(program, program + std::strlen(program));
    for (const std::string& argument : arguments) {
        line += L" " + widenArgument(argument.c_str());
    }
    return line;
}

} // namespace platform
