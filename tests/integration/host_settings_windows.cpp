#include "integration/host_settings.h"

#include <cstdint>
#include <filesystem>
#include <stdlib.h>

#include <windows.h>

namespace support {

namespace {

template <typename Pointer>
std::string textOf(Pointer pointer) {
    return std::to_string(reinterpret_cast<std::uintptr_t>(pointer));
}

std::string environmentText() {
    wchar_t* block = GetEnvironmentStringsW();
    std::string text;
    for (const wchar_t* each = block; *each != L'\0'; each += wcslen(each) + 1) {
        const std::u8string line = std::filesystem::path(each).u8string();
        text.append(line.begin(), line.end()).append("\n");
    }
    FreeEnvironmentStringsW(block);
    return text;
}

std::string exceptionFilter() {
    const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(nullptr);
    SetUnhandledExceptionFilter(filter);
    return textOf(filter);
}

std::string libraryFolder() {
    char folder[4096] = {};
    return {folder, GetDllDirectoryA(sizeof folder, folder)};
}

std::string isInJob() {
    BOOL inJob = FALSE;
    IsProcessInJob(GetCurrentProcess(), nullptr, &inJob);
    return std::to_string(inJob);
}

} // namespace

std::map<std::string, std::string> hostSettings() {
    return {{"environment", environmentText()},
            {"exception filter", exceptionFilter()},
            {"error mode", std::to_string(GetErrorMode())},
            {"error mode of the thread", std::to_string(GetThreadErrorMode())},
            {"current folder", std::filesystem::current_path().string()},
            {"folder for libraries", libraryFolder()},
            {"invalid-parameter handler", textOf(_get_invalid_parameter_handler())},
            {"job", isInJob()}};
}

} // namespace support
