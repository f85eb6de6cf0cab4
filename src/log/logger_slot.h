#pragma once

#include "log/logger_settings.h"
#include "log/rolling_file.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace orvel::log4z {

inline constexpr int LOGGER_MAX = 20;

/// One logger: its key, its settings, and the files it writes.
struct LoggerSlot {
    explicit LoggerSlot(const FileServices& services) : file(settings, services) {}

    std::string key;
    LoggerSettings settings;
    std::atomic<std::uint64_t> linesRefused{0}; ///< allocation failures, counted by callers and by the writer

    /// What changes with every line stays out of the memory that callers read.
    alignas(64) RollingFile file;
    std::uint64_t lossesReported = 0; ///< lost lines that the log itself has reported; the writer's own

    /// Lines that were to go to a file and did not. Thread: any.
    std::uint64_t linesLost() const {
        return file.linesLost() + linesRefused.load(std::memory_order_relaxed);
    }

    /// Makes a change. A logger that gave up its file tries again once outfile is set.
    void apply(SettingChange code, std::int32_t number, std::string_view text) {
        settings.set(code, number, text);
        if (code == kChangeOutFile) {
            file.tryAgain();
        }
    }
};

} // namespace orvel::log4z
