#include <fstream>
#include <iterator>

#include <unistd.h>

#include "support/process.h"

namespace support {

namespace {

namespace fs = std::filesystem;

std::size_t entriesOf(const char* folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

} // namespace

bool processRuns(std::int64_t pid, const std::string& program) {
    std::error_code gone; // also for a process that has ended and is not yet waited for
    const fs::path image = fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone);
    return !gone && image.filename() == program;
}

ProcessSize ownSize() {
    ProcessSize size;
    size.handles = entriesOf("/proc/self/fd");
    size.threads = entriesOf("/proc/self/task");
    std::ifstream status("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    status >> total >> resident;
    size.memoryBytes = resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

} // namespace support
