#include "platform/service_process.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace platform {

namespace {

namespace fs = std::filesystem;

fs::path servicePath() {
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored).parent_path() / "QuPCAudio.exe";
}

/// A child of this process that has ended keeps its id until it is waited for, so an id here is never
/// another's.
class PosixServiceProcess : public ServiceProcess {
public:
    explicit PosixServiceProcess(pid_t pid) : mPid(pid) {}

    ~PosixServiceProcess() override { waitpid(mPid, nullptr, WNOHANG); }

    bool waitForEnd(std::chrono::milliseconds limit) override {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (waitpid(mPid, nullptr, WNOHANG) == 0) { // -1: it has been waited for by killAll
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

private:
    pid_t mPid;
};

/// Parent of every running process, by process id.
std::map<pid_t, pid_t> processParents() {
    std::map<pid_t, pid_t> parents;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        std::ifstream status(entry.path() / "status");
        std::string line;
        while (pid > 0 && std::getline(status, line)) {
            if (line.rfind("PPid:", 0) == 0) {
                parents[pid] = std::atoi(line.c_str() + 5);
                break;
            }
        }
    }
    return parents;
}

} // namespace

// By path and not by name alone, unlike the Windows form: builds with different sanitizers run their tests
// side by side on one machine and must not end each other's service.
void ServiceProcess::killAll() {
    const fs::path image = servicePath();
    const std::map<pid_t, pid_t> parents = processParents();
    std::set<pid_t> doomed;
    for (const auto& [pid, parent] : parents) {
        std::error_code ignored;
        if (fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", ignored) == image) {
            doomed.insert(pid);
        }
    }
    for (std::size_t before = 0; before != doomed.size();) { // children, their children, ...
        before = doomed.size();
        for (const auto& [pid, parent] : parents) {
            if (doomed.count(parent) != 0) {
                doomed.insert(pid);
            }
        }
    }
    for (const pid_t pid : doomed) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0); // returns at once for a process that is not our child
    }
}

std::unique_ptr<ServiceProcess> ServiceProcess::start(const char* logDir, int logLevel, int& systemError) {
    std::string path = servicePath();
    std::string directory = logDir;
    std::string level = std::to_string(logLevel);
    const std::array<char*, 4> arguments = {path.data(), directory.data(), level.data(), nullptr};
    pid_t pid = 0;
    const int result = posix_spawn(&pid, path.c_str(), nullptr, nullptr, arguments.data(), environ);
    if (result != 0) {
        systemError = result;
        return nullptr;
    }
    return std::make_unique<PosixServiceProcess>(pid);
}

} // namespace platform
