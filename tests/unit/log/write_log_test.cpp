#include "log/write_log.h"

#include "log/front_end.h"
#include "support/log/log_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>

using namespace support;
using namespace orvel;
using namespace orvel::log4z;

TEST(WriteLog, MemoryThatRunsOutCostsTheLineAndNothingElse) {
    // Memory is asked for here and there; the time, in between, always. The writer thread keeps its memory.
    class ClockOfALowMemory final : public platform::Clock {
    public:
        platform::Moment now() override {
            return std::this_thread::get_id() == mCaller && isLow ? throw std::bad_alloc()
                                                                  : platform::Moment{};
        }

        std::uint64_t steadyMilliseconds() override { return 0; }

        platform::CalendarTime toLocal(std::int64_t) override { return {}; }

        std::int64_t fromLocal(const platform::CalendarTime&) override { return 0; }

        void sleep(unsigned) override {}

        bool isLow = false; ///< the caller's own

    private:
        const std::thread::id mCaller = std::this_thread::get_id();
    } clock;

    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    const int id = manager.createLogger("Test");
    manager.setLoggerPath(id, "logs");
    manager.setLoggerDisplay(id, false);
    ASSERT_TRUE(manager.start());
    logFrontEnd.manager = &manager;
    logFrontEnd.loggerId = id;
    logFrontEnd.initialised = true;
    clock.isLow = true;
    writeLog(kLogError, "tag", "lost");
    clock.isLow = false;
    writeLog(kLogError, "tag", "kept");
    logFrontEnd.initialised = false;
    logFrontEnd.loggerId = -1;
    logFrontEnd.manager = nullptr;
    manager.stop();
    ASSERT_EQ(files.pathsWith(".log").size(), 1u);
    const std::string text = files.content(files.pathsWith(".log")[0]);
    EXPECT_EQ(text.find("lost"), std::string::npos);
    EXPECT_NE(text.find("ERROR tag: kept"), std::string::npos);
}

TEST(WriteLog, ALineThatTheManagerWouldNotLogCostsNoRecord) {
    class CountingClock final : public platform::Clock {
    public:
        platform::Moment now() override {
            if (std::this_thread::get_id() == mCaller) {
                ++asked;
            }
            return {};
        }

        std::uint64_t steadyMilliseconds() override { return 0; }

        platform::CalendarTime toLocal(std::int64_t) override { return {}; }

        std::int64_t fromLocal(const platform::CalendarTime&) override { return 0; }

        void sleep(unsigned) override {}

        int asked = 0; ///< by the caller

    private:
        const std::thread::id mCaller = std::this_thread::get_id();
    } clock;

    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    const int id = manager.createLogger("Test");
    manager.setLoggerPath(id, "logs");
    manager.setLoggerLevel(id, kLevelError);
    logFrontEnd.manager = &manager;
    logFrontEnd.loggerId = id;
    logFrontEnd.initialised = true;
    writeLog(kLogError, "tag", "the manager does not run");
    EXPECT_EQ(console.plain(), "") << "asked before a record is taken and refused";
    ASSERT_TRUE(manager.start());
    const int before = clock.asked;
    writeLog(kLogWarning, "tag", "below the logger's level");
    EXPECT_EQ(clock.asked, before) << "no record was made";
    writeLog(kLogError, "tag", "at its level");
    EXPECT_EQ(clock.asked, before + 1);
    logFrontEnd.initialised = false;
    logFrontEnd.loggerId = -1;
    logFrontEnd.manager = nullptr;
    manager.stop();
    EXPECT_EQ(manager.totalRecordsPushed(), 1u);
}
