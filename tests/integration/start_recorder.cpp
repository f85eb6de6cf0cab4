// Stands in for a program that the library starts, and writes down how it was started: its command line, whether it
// has a console to itself, and how its parent was asked to show its window. Into "<file name>.txt" in the current folder.
#include <array>
#include <cstdio>
#include <string>

#include <windows.h>

#include <tlhelp32.h>
#include <winternl.h>

namespace {

DWORD parentOf(DWORD pid) {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    DWORD parent = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more != FALSE;
         more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ProcessID == pid) {
            parent = entry.th32ParentProcessID;
        }
    }
    CloseHandle(snapshot);
    return parent;
}

struct Shown {
    DWORD flags = 0;
    DWORD how = 0;
};

// The window settings that a 64-bit process was started with. No call gives them for another process; they lie in its
// parameters, at offsets that have not moved since there are 64-bit processes.
Shown shownWindowOf(DWORD pid) {
    constexpr std::size_t kWindowFlags = 0xA4;
    using Query = NTSTATUS(NTAPI*)(HANDLE, PROCESSINFOCLASS, PVOID, ULONG, PULONG);
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess")));
    const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, pid);
    PROCESS_BASIC_INFORMATION information = {};
    query(process, ProcessBasicInformation, &information, sizeof information, nullptr);
    PEB environment = {};
    ReadProcessMemory(process, information.PebBaseAddress, &environment, sizeof environment, nullptr);
    Shown shown;
    ReadProcessMemory(process, reinterpret_cast<const char*>(environment.ProcessParameters) + kWindowFlags,
                      &shown, sizeof shown, nullptr);
    CloseHandle(process);
    return shown;
}

} // namespace

int main() {
    std::array<wchar_t, MAX_PATH> path = {};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring program(path.data());
    std::array<DWORD, 16> onConsole = {};
    const DWORD processes = GetConsoleProcessList(onConsole.data(), static_cast<DWORD>(onConsole.size()));
    const Shown parent = shownWindowOf(parentOf(GetCurrentProcessId()));
    const bool hidden = (parent.flags & STARTF_USESHOWWINDOW) != 0 && parent.how == SW_HIDE;

    std::FILE* file = _wfopen((program.substr(program.rfind(L'\\') + 1) + L".txt").c_str(), L"a");
    if (file == nullptr) {
        return 1;
    }
    std::fprintf(file, "%ls\nprocesses on the console: %lu\nwindow: %s\nparent hidden: %s\n",
                 GetCommandLineW(), processes, IsWindowVisible(GetConsoleWindow()) != FALSE ? "yes" : "no",
                 hidden ? "yes" : "no");
    return std::fclose(file);
}
