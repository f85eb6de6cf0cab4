#include <iterator>

#include <malloc.h>

#include "support/process.h"

// Given by the sanitizers' allocators: bytes in use. What they hold back after a free, to catch a late use, would
// otherwise count as memory of the program.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace support {

namespace {

namespace fs = std::filesystem;

std::size_t entriesOf(const char* folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

// Of the C library's allocator. The process may well be larger: what was given back it keeps for its next use.
std::size_t bytesInUse() {
    const struct mallinfo2 use = mallinfo2();
    return use.uordblks + use.hblkhd;
}

} // namespace

bool processRuns(std::int64_t pid, const std::string& program) {
    std::error_code gone; // also for a process that has ended and is not yet waited for
    const fs::path image = fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone);
    return !gone && image.filename() == program;
}

std::size_t running(const std::string& program) {
    const fs::path image = programFolder() / program;
    std::size_t count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        std::error_code notOne;
        count += fs::read_symlink(entry.path() / "exe", notOne) == image ? 1U : 0U;
    }
    return count;
}

std::string programFile(const std::string& name) {
    return name;
}

std::size_t levelMemory(std::size_t /*moreThreads*/) {
    return 256U * 1024U;
}

ProcessSize ownSize() {
    ProcessSize size;
    size.handles = entriesOf("/proc/self/fd");
    size.threads = entriesOf("/proc/self/task");
    size.memoryBytes = __sanitizer_get_current_allocated_bytes != nullptr
                           ? __sanitizer_get_current_allocated_bytes()
                           : bytesInUse();
    return size;
}

} // namespace support
