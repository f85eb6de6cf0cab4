#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include "support/process.h"

namespace support {

bool processRuns(std::int64_t pid, const std::string& program) {
    HANDLE process =
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    if (process == nullptr) {
        return false;
    }
    wchar_t path[1024] = {};
    DWORD length = 1024;
    const bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT &&
                         QueryFullProcessImageNameW(process, 0, path, &length) != FALSE &&
                         std::filesystem::path(path).filename() == program;
    CloseHandle(process);
    return running;
}

ProcessSize ownSize() {
    ProcessSize size;
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles) != FALSE) {
        size.handles = handles;
    }
    PROCESS_MEMORY_COUNTERS_EX memory{};
    memory.cb = sizeof memory;
    if (K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                                sizeof memory) != FALSE) {
        size.memoryBytes = memory.PrivateUsage;
    }
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            ++size.threads;
        }
    }
    CloseHandle(snapshot);
    return size;
}

} // namespace support
