#pragma once

#include "log/log_names.h"
#include "log/logger_slot.h"
#include "support/log/fake_clock.h"
#include "support/log/memory_files.h"
#include "support/log/recording_console.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace support {

/// The zone of New York in 2026: clocks are put on at 2026-03-08 02:00 and back at 2026-11-01 02:00.
inline std::int64_t newYork(std::int64_t utc) {
    return utc < 1772953200 || utc >= 1793512800 ? -5 * 3600 : -4 * 3600;
}

/// One logger's files on a fake system.
class RollingFileTest : public ::testing::Test {
protected:
    RollingFileTest() {
        slot.settings.enable = true;
        slot.settings.name = "sonvia_Test";
        slot.settings.path = "logs/";
        slot.settings.reserveDelType = orvel::log4z::kReserveBySize;
        clock.setLocal({2026, 3, 9, 8, 0, 0});
    }

    /// Writes one line of that many bytes at the present time; false when there is no file for it.
    bool line(std::size_t bytes = 100) {
        if (!slot.file.openFor(clock.now().seconds)) {
            return false;
        }
        slot.file.write(std::string(bytes, 'x').data(), bytes);
        slot.file.flush();
        return true;
    }

    /// Puts so many old files of that content into the folder, and the logger reads its history.
    void loadOldFiles(int count, const std::string& content) {
        const auto shared = std::make_shared<std::string>(content);
        for (int i = 0; i < count; ++i) {
            const platform::CalendarTime time = clock.toLocal(1'700'000'000 + i);
            files.putShared("logs/" + orvel::log4z::logFileName(slot.settings.name, time), shared);
        }
        slot.file.loadHistory(0);
        screen.forget();
    }

    std::vector<std::string> logs() const { return files.pathsWith(".log"); }

    FakeClock::Zone zone = [](std::int64_t) { return 0; };
    FakeClock clock{[this](std::int64_t utc) { return zone(utc); }};
    MemoryFiles files;
    RecordingConsole screen;
    orvel::log4z::ConsoleEcho console{screen};
    orvel::log4z::LoggerSlot slot{{clock, files, console}};
};

} // namespace support
