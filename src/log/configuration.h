#pragma once

#include "log/file_services.h"
#include "log/registry.h"
#include "log/sync_helpers.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvel::log4z {

/// The configuration text or file that loggers are set up from. Operations as in ILog4zManager. Thread: any.
class LogConfiguration {
public:
    /// Both arguments outlive the configuration.
    LogConfiguration(const FileServices& services, LoggerRegistry& registry)
        : mServices(services), mRegistry(registry) {}

    bool load(const char* configFile);
    bool applyText(const char* text);

    /// Applies the file again if its content has changed.
    bool update();

    /// Seconds; 0 for never.
    void setCheckInterval(std::uint32_t seconds) { mCheckInterval.store(seconds, std::memory_order_relaxed); }

    /// Whether the writer is to check the file from time to time.
    bool isWatched() const { return mCheckInterval.load(std::memory_order_relaxed) != 0; }

    /// The first check is due an interval from now. Writer thread.
    void startWatching() { mLastCheck = mServices.clock.now().seconds; }

    /// Applies a changed file when more than the interval has passed since the last check, and at once when the clock
    /// was put back. Writer thread.
    void checkIfDue();

private:
    bool applyIfChanged(std::string_view text);
    bool readFile(std::string& text);

    const FileServices mServices;
    LoggerRegistry& mRegistry;
    LockHelper mLock; ///< guards the next three; taken before the registry's
    std::string mFile;
    bool mHasFile = false;
    std::uint32_t mChecksum = 0; ///< of the text in force
    std::atomic<std::uint32_t> mCheckInterval{0};
    std::int64_t mLastCheck = 0; ///< writer thread
};

} // namespace orvel::log4z
