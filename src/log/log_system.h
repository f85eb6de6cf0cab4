#pragma once

#include "log/thread_helper.h"
#include "platform/auto_reset_event.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/file_system.h"

#include <functional>
#include <memory>
#include <string>

namespace orvel::log4z {

/// What the engine asks the system for; a test gives its own.
struct LogSystem {
    platform::Clock& clock;
    platform::FileSystem& files;
    platform::Console& console;
    std::string hostFileName;   ///< the host's executable
    unsigned startLimit = 3000; ///< how long `start` waits for the writer thread, ms
    ThreadHelper::Starter startThread = [](platform::Thread& thread, void (*entry)(void*), void* argument) {
        return thread.start(entry, argument);
    };
    /// Makes what the writer thread sleeps on.
    std::function<std::unique_ptr<platform::AutoResetEvent>()> makeEvent = platform::makeAutoResetEvent;

    static LogSystem real();
};

} // namespace orvel::log4z
