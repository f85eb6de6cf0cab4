#include "platform/process.h"

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace platform {

namespace {

/// A path in a buffer of its own: endAll must work without memory.
using Path = std::array<char, PATH_MAX + 1>;

/// The file that a process runs; empty when the system does not tell. `process` is a number, or "self".
Path imageOf(const char* process) {
    std::array<char, 64> link = {};
    std::snprintf(link.data(), link.size(), "/proc/%.20s/exe", process);
    Path path = {};
    if (readlink(link.data(), path.data(), path.size() - 1) < 0) {
        path.front() = '\0';
    }
    return path;
}

/// The `program` in the folder of the host's executable.
Path pathOf(const char* program) {
    Path path = imageOf("self");
    char* const slash = std::strrchr(path.data(), '/');
    char* const name = slash != nullptr ? slash + 1 : path.data();
    std::snprintf(name, static_cast<std::size_t>(path.data() + path.size() - name), "%s", program);
    return path;
}

/// A child of this process that has ended keeps its id until it is waited for, so an id here is never
/// another's.
class PosixProcess : public Process {
public:
    ~PosixProcess() override {
        if (mPid != 0) {
            waitpid(mPid, nullptr, WNOHANG);
        }
    }

    void own(pid_t pid) { mPid = pid; }

    bool waitForEnd(std::chrono::milliseconds limit) override {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (waitpid(mPid, nullptr, WNOHANG) == 0) { // -1: it has been waited for by endAll
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    void endByForce() override { kill(mPid, SIGKILL); }

private:
    pid_t mPid = 0;
};

/// Parent of a running process; 0 when the system does not tell.
pid_t parentOf(const char* process) {
    std::array<char, 64> name = {};
    std::snprintf(name.data(), name.size(), "/proc/%.20s/stat", process);
    std::array<char, 512> text = {};
    const int file = open(name.data(), O_RDONLY | O_CLOEXEC);
    const ssize_t length = file >= 0 ? read(file, text.data(), text.size() - 1) : -1;
    if (file >= 0) {
        close(file);
    }
    // "12 (name) S 1 ...", and the name may hold brackets.
    const char* const bracket = length > 0 ? std::strrchr(text.data(), ')') : nullptr;
    return bracket != nullptr && std::strlen(bracket) > 4 ? std::atoi(bracket + 4) : 0;
}

/// The processes to end. More of them than it holds are left to the next call.
struct Doomed {
    std::array<pid_t, 256> pids = {};
    std::size_t count = 0;

    bool has(pid_t pid) const {
        return std::find(pids.begin(), pids.begin() + count, pid) != pids.begin() + count;
    }

    void add(pid_t pid) {
        if (count < pids.size()) {
            pids[count++] = pid;
        }
    }

    /// Adds what runs `image`, and the children of what is in here.
    void addRunning(const Path& image) {
        DIR* const folder = opendir("/proc");
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own
        while (const dirent* entry = folder != nullptr ? readdir(folder) : nullptr) {
            const pid_t pid = std::atoi(entry->d_name);
            if (pid > 0 && !has(pid) &&
                (std::strcmp(imageOf(entry->d_name).data(), image.data()) == 0 ||
                 has(parentOf(entry->d_name)))) {
                add(pid);
            }
        }
        if (folder != nullptr) {
            closedir(folder);
        }
    }
};

} // namespace

// By path and not by name alone, unlike the Windows form: builds with different sanitizers run their tests
// at the same time on one machine and must not end each other's processes.
void Process::endAll(const char* program) noexcept {
    const Path image = pathOf(program);
    Doomed doomed;
    doomed.addRunning(image);
    for (std::size_t before = 0; before != doomed.count;) { // children, their children, ...
        before = doomed.count;
        doomed.addRunning(image);
    }
    for (std::size_t i = 0; i < doomed.count; ++i) {
        kill(doomed.pids[i], SIGKILL);
        waitpid(doomed.pids[i], nullptr, 0); // returns at once for a process that is not our child
    }
}

std::unique_ptr<Process> Process::start(const char* program, const std::vector<std::string>& arguments,
                                        int& systemError) {
    auto process = std::make_unique<PosixProcess>(); // first: a started process must have its owner
    Path path = pathOf(program);
    std::vector<std::string> texts = arguments;
    std::vector<char*> pointers = {path.data()};
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    pid_t pid = 0;
    const int result = posix_spawn(&pid, path.data(), nullptr, nullptr, pointers.data(), environ);
    if (result != 0) {
        systemError = result;
        return nullptr;
    }
    process->own(pid);
    return process;
}

} // namespace platform
