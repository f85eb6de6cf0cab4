#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace platform {

/// One started program. Owned by one thread at a time.
class Process {
public:
    /// Ends every process of `program`, with its child processes, by force, and waits (without limit) until that has been
    /// done. Does not report failures: what could not be ended still runs. Allocates nothing, so that a start-up or a
    /// shut-down that ran out of memory can still clean up.
    /// `program`: a file name of ASCII characters, at most kMaxProgramName of them.
    static void endAll(const char* program) noexcept;

    /// Starts the `program` in the folder of the host's executable. Null when it cannot be started; `systemError` is then
    /// the system's number for the cause. Throws std::bad_alloc before anything is started.
    /// `program`: as for endAll. `arguments`: NUL-terminated, in the current locale's code page; see commandLine.
    static std::unique_ptr<Process> start(const char* program, const std::vector<std::string>& arguments,
                                          int& systemError);

    virtual ~Process() = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Waits for the process to end; false exactly when it still runs after `limit`.
    virtual bool waitForEnd(std::chrono::milliseconds limit) = 0;

    /// Ends this one process, without its children and without the help of another program. Does not wait.
    virtual void endByForce() = 0;

    static constexpr std::size_t kMaxProgramName = 100;

protected:
    Process() = default;
};

} // namespace platform
