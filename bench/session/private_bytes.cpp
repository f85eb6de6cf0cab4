#include "private_bytes.h"

#ifdef _WIN32

#include <windows.h>
// After windows.h, which it needs.
#include <psapi.h>

std::int64_t privateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof counters);
    return static_cast<std::int64_t>(counters.PrivateUsage);
}

#else

#include <fstream>
#include <string>

std::int64_t privateBytes() {
    std::ifstream sums("/proc/self/smaps_rollup");
    std::int64_t kilobytes = 0;
    for (std::string word; sums >> word;) {
        if (word == "Private_Dirty:") {
            sums >> kilobytes;
        }
    }
    return kilobytes * 1024;
}

#endif
