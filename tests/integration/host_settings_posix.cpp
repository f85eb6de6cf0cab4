#include "integration/host_settings.h"

#include <csignal>
#include <cstdint>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace support {

namespace {

std::string environmentText() {
    std::string text;
    for (char** each = environ; *each != nullptr; ++each) {
        text.append(*each).append("\n");
    }
    return text;
}

std::string dispositions() {
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action {};

        // SIGPIPE is the host's own doing (HostLibrary).
        if (signal != SIGPIPE && sigaction(signal, nullptr, &action) == 0) {
            text += std::to_string(signal) + " " +
                    std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) + "\n";
        }
    }
    return text;
}

std::string fileMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return std::to_string(mask);
}

} // namespace

std::map<std::string, std::string> hostSettings() {
    return {{"environment", environmentText()},
            {"current folder", std::filesystem::current_path().string()},
            {"signal dispositions", dispositions()},
            {"file mask", fileMask()}};
}

} // namespace support
