#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace platform {

/// One started "QuPCAudio.exe". Owned by one thread at a time.
class ServiceProcess {
public:
    /// Ends every process of the service's name, with its child processes, by force, and waits (without
    /// limit) until that has been done. Failures are not reported: when nothing could be ended, nothing was. Needs no
    /// memory of this process's own: it is how a start-up and a shut-down that ran out of memory are put right.
    static void killAll() noexcept;

    /// Starts the service that stands beside the host's executable, with the log folder and level as its
    /// arguments. Null when it cannot be started; `systemError` is then the system's number for the cause. Throws
    /// std::bad_alloc before anything is started.
    /// `logDir` is NUL-terminated, in the current locale's code page.
    static std::unique_ptr<ServiceProcess> start(const char* logDir, int logLevel, int& systemError);

    virtual ~ServiceProcess() = default;
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// Waits for the process to end; false exactly when it still runs after `limit`.
    virtual bool waitForEnd(std::chrono::milliseconds limit) = 0;

    /// Ends this one process, without its children and without the help of another program. Does not wait.
    virtual void endByForce() = 0;

protected:
    ServiceProcess() = default;
};

/// `logDir` in wide characters as the current C locale converts it, cut at 255 of them; empty when it cannot
/// be converted.
std::wstring widenLogDir(const char* logDir);

/// The whole command line: the `hostExecutable` up to its last backslash, the service's name, the widened
/// log folder and the level. Nothing is quoted: the service reads what follows its own name.
std::wstring serviceCommandLine(const std::wstring& hostExecutable, const char* logDir, int logLevel);

} // namespace platform
