#pragma once

#include "platform/process.h"

#include <memory>

/// The service's program: its name and what it is started with.
namespace api {

/// Starts the service next to the host's executable, with the log folder and level as its arguments. Null when it cannot
/// be started; `systemError` is then the system's number for the cause. Throws std::bad_alloc before anything is started.
/// `logDir`: NUL-terminated, in the current locale's code page.
std::unique_ptr<platform::Process> startService(const char* logDir, int logLevel, int& systemError);

/// Ends every running service, even one that another program started, with its child processes; see
/// platform::Process::endAll.
void endEveryService() noexcept;

} // namespace api
