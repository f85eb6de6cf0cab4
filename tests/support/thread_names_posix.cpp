#include "support/thread_names.h"

#include <filesystem>
#include <fstream>

namespace support {

namespace {

std::string nameIn(const std::filesystem::path& folder) {
    std::string name;
    std::ifstream file(folder / "comm"); // gone when the thread has just ended
    std::getline(file, name);
    return name;
}

} // namespace

std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        names.push_back(nameIn(thread.path()));
    }
    return names;
}

std::string threadName() {
    return nameIn("/proc/thread-self");
}

} // namespace support
