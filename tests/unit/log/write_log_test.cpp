#include "log/write_log.h"

#include "log/front_end.h"
#include "support/log/log_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>

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

TEST(Message, IsAppendedBehindItsTag) {
    LogRecord record;
    record.contentLength = 3;
    appendMessage(record, "tag", "7-x");
    EXPECT_EQ(std::string(record.content + 3, static_cast<std::size_t>(record.contentLength - 3)),
              "tag: 7-x");
    record.contentLength = 0;
    appendMessage(record, nullptr, "x");
    EXPECT_EQ(std::string(record.content, static_cast<std::size_t>(record.contentLength)), ": x");
}

TEST(Message, ThatOverflowsItsRecordMarksItFull) {
    const std::string longTag(5000, 't');

    struct Case {
        std::int32_t used;
        std::size_t tag;
        std::size_t message;
        std::int32_t expected;
    };

    for (const Case& c :
         {Case{100, 5000, 3089, 8191}, Case{100, 5000, 3090, 8192}, Case{100, 5000, 4095, 8192},
          Case{8192, 1, 1, 8192}, Case{8190, 1, 1, 8192}, Case{8188, 1, 0, 8191}}) {
        LogRecord record;
        std::memset(record.content, '.', sizeof record.content);
        record.contentLength = c.used;
        appendMessage(record, longTag.substr(0, c.tag).c_str(), std::string(c.message, 'm'));
        EXPECT_EQ(record.contentLength, c.expected) << c.used << " " << c.tag << " " << c.message;
        EXPECT_EQ(std::string(record.content + 8192, 3), "...") << "behind the record's text";
    }
}
