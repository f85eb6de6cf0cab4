#include "process_tree.h"

#include <algorithm>
#include <cwchar>

#include <windows.h>

#include <tlhelp32.h>

namespace taskkill {

namespace {

constexpr DWORD kEndWaitMs = 5000;

std::uint64_t creationTime(DWORD pid) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
    if (process == nullptr) {
        return 0;
    }
    FILETIME created{};
    FILETIME unused{};
    const BOOL known = GetProcessTimes(process, &created, &unused, &unused, &unused);
    CloseHandle(process);
    if (known == FALSE) {
        return 0;
    }
    return (static_cast<std::uint64_t>(created.dwHighDateTime) << 32U) | created.dwLowDateTime;
}

bool contains(const std::vector<Process>& processes, const Process& wanted) {
    return std::any_of(processes.begin(), processes.end(), [&](const Process& process) {
        return process.pid == wanted.pid && process.created == wanted.created;
    });
}

bool hasParentIn(const std::vector<Process>& parents, const Process& child) {
    return std::any_of(parents.begin(), parents.end(),
                       [&](const Process& parent) { return isChildOf(child, parent); });
}

} // namespace

std::vector<Process> listProcesses() {
    std::vector<Process> processes;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return processes;
    }
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more != FALSE;
         more = Process32NextW(snapshot, &entry)) {
        const DWORD pid = entry.th32ProcessID;
        if (pid > 4 && pid != GetCurrentProcessId()) {
            processes.push_back({pid, entry.th32ParentProcessID, creationTime(pid), entry.szExeFile});
        }
    }
    CloseHandle(snapshot);
    return processes;
}

bool isChildOf(const Process& child, const Process& parent) {
    return child.parent == parent.pid && child.pid != parent.pid && child.created >= parent.created;
}

bool sameImage(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::vector<Process> selectTrees(const std::vector<Process>& all, const std::wstring& name, bool withChildren,
                                 const std::vector<Process>& roots) {
    std::vector<Process> selected;
    for (const Process& process : all) {
        if (sameImage(process.image, name)) {
            selected.push_back(process);
        }
    }
    if (!withChildren) {
        return selected;
    }
    std::vector<Process> parents = selected;
    parents.insert(parents.end(), roots.begin(), roots.end());
    for (std::size_t before = 0; before != parents.size();) {
        before = parents.size();
        for (const Process& process : all) {
            if (hasParentIn(parents, process) && !contains(parents, process)) {
                parents.push_back(process);
                selected.push_back(process);
            }
        }
    }
    return selected;
}

bool terminate(const Process& process) {
    HANDLE handle = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, process.pid);
    if (handle == nullptr) {
        return false;
    }
    const bool ended =
        TerminateProcess(handle, 1) != FALSE || WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
    if (ended) {
        WaitForSingleObject(handle, kEndWaitMs);
    }
    CloseHandle(handle);
    return ended;
}

} // namespace taskkill
