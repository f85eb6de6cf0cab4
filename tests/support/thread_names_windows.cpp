#include "support/thread_names.h"

#include <stdexcept>
#include <string>

#include <windows.h>

#include <tlhelp32.h>

namespace support {

namespace {

std::string nameOf(HANDLE thread) {
    using GetDescription = HRESULT(WINAPI*)(HANDLE thread, PWSTR * description);
    const auto getDescription = reinterpret_cast<GetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "GetThreadDescription")));
    if (getDescription == nullptr) {
        throw std::runtime_error("this Windows has no GetThreadDescription");
    }
    PWSTR wide = nullptr;
    if (FAILED(getDescription(thread, &wide))) {
        throw std::runtime_error("GetThreadDescription failed");
    }
    std::string name;
    for (const wchar_t* each = wide; *each != L'\0'; ++each) {
        name += static_cast<char>(*each);
    }
    LocalFree(wide);
    return name;
}

} // namespace

std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(all, &entry); more; more = Thread32Next(all, &entry)) {
        if (entry.th32OwnerProcessID != GetCurrentProcessId()) {
            continue;
        }
        const HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ThreadID);
        if (thread != nullptr) { // else it has just ended
            names.push_back(nameOf(thread));
            CloseHandle(thread);
        }
    }
    CloseHandle(all);
    return names;
}

std::string threadName() {
    return nameOf(GetCurrentThread());
}

} // namespace support
