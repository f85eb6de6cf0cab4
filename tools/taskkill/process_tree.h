// Processes and their descendants, as Windows' Toolhelp snapshots show them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace taskkill {

struct Process {
    std::uint32_t pid = 0;
    std::uint32_t parent = 0;
    std::uint64_t created = 0; // FILETIME; 0 when the process cannot be asked any more
    std::wstring image;
};

// Every process but this one and the system's own two.
std::vector<Process> listProcesses();

// True when `child` was started by `parent`. The number of a parent that has ended may belong to somebody
// else by now; a process that is younger than its "child" is such a somebody.
bool isChildOf(const Process& child, const Process& parent);

bool sameImage(const std::wstring& a, const std::wstring& b);

// From `all`: the processes whose image is `name`, and the descendants of them and of `roots`, each once,
// parents before their children.
std::vector<Process> selectTrees(const std::vector<Process>& all, const std::wstring& name, bool withChildren,
                                 const std::vector<Process>& roots);

// Ends the process by force and waits until it is gone. False when it could not be opened or ended.
bool terminate(const Process& process);

} // namespace taskkill
