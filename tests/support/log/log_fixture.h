#pragma once

#include "log/manager.h"
#include "support/log/fake_clock.h"
#include "support/log/memory_files.h"
#include "support/log/recording_console.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace support {

/// An engine of its own on a fake system.
class LogEngine : public ::testing::Test {
protected:
    orvel::log4z::LogSystem fakeSystem() {
        return {clock, files, console, "C:\\Program Files\\host.app.exe"};
    }

    /// A logger whose files go to "logs/", not shown on the console.
    int makeQuietLogger(const char* key = "Test") {
        const int id = manager.createLogger(key);
        manager.setLoggerPath(id, "logs");
        manager.setLoggerDisplay(id, false);
        manager.setLoggerReserveDelType(id, orvel::log4z::kReserveBySize);
        return id;
    }

    bool log(int id, int level, const std::string& text, const char* file = nullptr, int line = 0) {
        orvel::log4z::LogRecord* record = manager.makeRecord(id, level);
        std::memcpy(record->content + record->contentLength, text.data(), text.size());
        record->contentLength += static_cast<std::int32_t>(text.size());
        return manager.pushLog(record, file, line);
    }

    /// Writes a line and waits until it is in its file: the clock may move then.
    void logNow(int id, const std::string& text, int level = orvel::log4z::kLevelError) {
        log(id, level, text);
        ASSERT_TRUE(manager.flush(kTimeoutMs));
    }

    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    orvel::log4z::LogerManager manager{fakeSystem()};
};

} // namespace support
