#include <stdexcept>
#include <vector>

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

#include "support/process.h"

namespace support {

namespace {

// One row and the head of the system's list of handles (information class 64), which winternl.h leaves out.
struct HandleRow {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG access;
    USHORT traceIndex;
    USHORT type;
    ULONG attributes;
    ULONG reserved;
};

struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
};

constexpr int kExtendedHandleInformation = 64;
constexpr NTSTATUS kLengthMismatch = static_cast<NTSTATUS>(0xC0000004);

// Not GetProcessHandleCount: Wine 8 answers 0.
std::size_t ownHandles() {
    const auto query = reinterpret_cast<NTSTATUS(NTAPI*)(int, void*, ULONG, ULONG*)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<unsigned char> bytes(1U << 20U);
    NTSTATUS status = kLengthMismatch;
    while ((status = query(kExtendedHandleInformation, bytes.data(), static_cast<ULONG>(bytes.size()),
                           nullptr)) == kLengthMismatch) {
        bytes.resize(bytes.size() * 2);
    }
    if (status != 0) {
        throw std::runtime_error("the system does not list its handles");
    }
    const auto* list = reinterpret_cast<const HandleList*>(bytes.data());
    const auto* rows = reinterpret_cast<const HandleRow*>(bytes.data() + sizeof(HandleList));
    std::size_t own = 0;
    for (ULONG_PTR i = 0; i < list->count; ++i) {
        own += rows[i].processId == GetCurrentProcessId() ? 1U : 0U;
    }
    return own;
}

std::size_t ownThreads() {
    std::size_t own = 0;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more != FALSE; more = Thread32Next(snapshot, &entry)) {
        own += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1U : 0U;
    }
    CloseHandle(snapshot);
    return own;
}

// Committed private pages, counted one by one: Wine 8 answers 0 for the process's own sum of them.
std::size_t ownPrivateBytes() {
    std::size_t total = 0;
    MEMORY_BASIC_INFORMATION region{};
    const char* address = nullptr;
    while (VirtualQuery(address, &region, sizeof region) != 0) {
        if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) {
            total += region.RegionSize;
        }
        address = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    return total;
}

} // namespace

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

// By name alone: that is how the library ends them.
std::size_t running(const std::string& program) {
    std::size_t count = 0;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more != FALSE;
         more = Process32NextW(snapshot, &entry)) {
        count += std::filesystem::path(entry.szExeFile).filename() == program ? 1U : 0U;
    }
    CloseHandle(snapshot);
    return count;
}

std::string programFile(const std::string& name) {
    return name + ".exe";
}

// The heap takes and returns pages by the block.
std::size_t levelMemory(std::size_t moreThreads) {
    return (2U + 4U * moreThreads) * 1024U *
           1024U; // a stack is private memory as soon as its thread is there
}

ProcessSize ownSize() {
    return {ownHandles(), ownThreads(), ownPrivateBytes()};
}

} // namespace support
