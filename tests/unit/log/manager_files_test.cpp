#include "support/log/log_fixture.h"

#include "support/log/test_folder.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

using ManagerFiles = LogEngine;

/// A clock of which the log sees many seconds in one: files get names of their own however fast they fill.
class FastClock final : public platform::Clock {
public:
    platform::Moment now() override {
        const platform::Moment real = mSystem.now();
        const std::int64_t fast = (real.seconds * 1000 + real.milliseconds) * kFaster;
        return {fast / 1000, static_cast<std::uint32_t>(fast % 1000)};
    }

    std::uint64_t steadyMilliseconds() override { return platform::systemClock().steadyMilliseconds(); }

    platform::CalendarTime toLocal(std::int64_t seconds) override { return mSystem.toLocal(seconds); }

    std::int64_t fromLocal(const platform::CalendarTime& local) override { return mSystem.fromLocal(local); }

    void sleep(unsigned milliseconds) override { mSystem.sleep(milliseconds); }

private:
    static constexpr std::int64_t kFaster = 10;

    platform::Clock& mSystem = platform::systemClock();
};

/// Checks that every line is whole and that each thread's lines are in order; returns how many there are.
std::uint64_t checkLines(const std::string& text, std::map<int, int>& lastOfThread) {
    std::uint64_t lines = 0;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find("\r\n", begin);
        if (end == std::string::npos) {
            ADD_FAILURE() << "a line without an end";
            return lines;
        }
        const std::string line = text.substr(begin, end - begin);
        begin = end + 2;
        ++lines;
        const std::size_t marker = line.find("] ERROR t=");
        int thread = -1;
        int number = -1;
        std::string tail;
        std::istringstream fields(marker == std::string::npos ? "" : line.substr(marker + 10));
        char comma = 0;
        fields >> thread >> comma >> number >> tail;
        if (tail != "whole") {
            ADD_FAILURE() << "broken line: " << line;
            return lines;
        }
        const auto last = lastOfThread.find(thread);
        if (last != lastOfThread.end() && number <= last->second) {
            ADD_FAILURE() << "thread " << thread << " line " << number << " after " << last->second;
        }
        lastOfThread[thread] = number;
    }
    return lines;
}

} // namespace

TEST_F(ManagerFiles, EightProducersLoseNoLineOverAllRotatedFiles) {
    FastClock fast;
    LogerManager busy({fast, files, console, "host"});
    const int id = busy.createLogger("Busy");
    busy.setLoggerPath(id, "logs");
    busy.setLoggerDisplay(id, false);
    busy.setLoggerLimitsize(id, 1);
    busy.setLoggerTotalsize(id, 0);
    ASSERT_TRUE(busy.start());
    std::atomic<std::uint64_t> submitted{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<bool> more{true};
    std::vector<std::thread> producers;
    for (int thread = 0; thread < 8; ++thread) {
        producers.emplace_back([&, thread] {
            for (int number = 0; more.load(std::memory_order_relaxed); ++number) {
                busy.wouldLog(id, kLevelError);
                LogRecord* record = busy.makeRecord(id, kLevelError);
                const std::string text =
                    "t=" + std::to_string(thread) + "," + std::to_string(number) + " whole";
                text.copy(record->content + record->contentLength, text.size());
                record->contentLength += static_cast<std::int32_t>(text.size());
                submitted.fetch_add(1);
                refused.fetch_add(busy.pushLog(record, nullptr, 0) ? 0 : 1);
            }
        });
    }
    platform::systemClock().sleep(3000); // how long it lasts; nothing is decided by it
    busy.stop();                         // the producers go on against a stopped manager
    more.store(false);
    for (std::thread& producer : producers) {
        producer.join();
    }
    std::uint64_t written = 0;
    std::map<int, int> lastOfThread;
    for (const std::string& path : files.pathsWith("sonvia_Busy_")) { // by name is by time
        written += checkLines(files.content(path), lastOfThread);
    }
    EXPECT_EQ(written + refused.load(), submitted.load());
    EXPECT_EQ(busy.totalRecordsPushed(), written);
    EXPECT_EQ(busy.totalLinesWritten(), written);
    EXPECT_EQ(busy.totalBytesWritten(), files.totalSize("sonvia_Busy_"));
    EXPECT_EQ(lastOfThread.size(), 8u);
}

TEST_F(ManagerFiles, FlushedLinesAreInTheFileWhileTheManagerRuns) {
    const int id = makeQuietLogger();
    manager.start();
    for (int i = 0; i < 50; ++i) {
        logNow(id, "line " + std::to_string(i));
        const std::string text = files.content(files.pathsWith(".log").at(0));
        EXPECT_NE(text.find("line " + std::to_string(i) + "\r\n"), std::string::npos);
    }
}

TEST_F(ManagerFiles, EveryLoggersHistoryIsReadAtTheStartAndItsLinesAreFlushedWithoutBeingAskedFor) {
    makeQuietLogger("First");
    const int second = makeQuietLogger("Second");
    files.put("logs/sonvia_Second_2020-01-01-00-00-00.log", "old");
    manager.start();
    log(second, kLevelError, "alone");
    EXPECT_TRUE(eventually("the line is in its file", [&] { return files.totalSize("sonvia_Second_") > 3; }));
    manager.stop();
    EXPECT_EQ(manager.slot(second).file.history().count(), 2u);
}

TEST_F(ManagerFiles, LinesAreFlushedWithoutBeingAskedFor) {
    const int id = makeQuietLogger();
    manager.start();
    log(id, kLevelError, "alone");
    EXPECT_TRUE(eventually("the line is in its file", [&] { return files.totalSize(".log") > 0; }));
}

TEST_F(ManagerFiles, AtMidnightTheNextLineGoesToANewFile) {
    clock.setLocal({2026, 12, 31, 23, 59, 59}, 999);
    const int id = makeQuietLogger();
    manager.setLoggerMonthdir(id, true);
    manager.start();
    logNow(id, "old year");
    clock.advance(1);
    logNow(id, "new year");
    manager.stop();
    EXPECT_EQ(files.pathsWith(".log"),
              (std::vector<std::string>{"logs/2026_12/sonvia_Test_2026-12-31-23-59-59.log",
                                        "logs/2027_01/sonvia_Test_2027-01-01-00-00-00.log"}));
    EXPECT_EQ(files.content("logs/2027_01/sonvia_Test_2027-01-01-00-00-00.log").find("01-01 00:00:00.999 ["),
              0u);
}

TEST_F(ManagerFiles, TheVersionFileStaysInTheLoggersFolderAndANewVersionClearsTheMonths) {
    files.put("logs/2026_01/sonvia_Test_2026-01-01-00-00-00.log", "old");
    const int id = makeQuietLogger();
    manager.setLoggerMonthdir(id, true);
    manager.setLoggerVersion(id, "2.1.2110122");
    manager.start();
    logNow(id, "first");
    manager.stop();
    EXPECT_FALSE(files.exists("logs/2026_01/sonvia_Test_2026-01-01-00-00-00.log"));
    EXPECT_EQ(files.content("logs/sonvia_version"), "2.1.2110122");
    EXPECT_EQ(files.pathsWith(".log").size(), 1u);
}

TEST_F(ManagerFiles, AFullDiskStopsNeitherTheWriterNorTheCallers) {
    const int id = makeQuietLogger();
    manager.start();
    logNow(id, "kept");
    files.failNth(MemoryFiles::Call::Write, 1, true);
    for (int i = 0; i < 100; ++i) {
        clock.advance(1);
        logNow(id, "lost");
    }
    files.failNothing();
    clock.advance(1);
    logNow(id, "kept again");
    manager.stop();
    EXPECT_EQ(manager.totalRecordsPopped(), 102u);
    EXPECT_EQ(manager.totalLinesLost(), 100u) << "the halves of them are no lines";
    std::string all;
    for (const std::string& path : files.pathsWith(".log")) {
        all += files.content(path);
    }
    EXPECT_NE(all.find("] ERROR kept\r\n"), std::string::npos);
    EXPECT_NE(all.find("] ERROR kept again\r\n"), std::string::npos);
}

TEST_F(ManagerFiles, LostLinesAreReportedInTheLogAsSoonAsItTakesLinesAgain) {
    const int id = makeQuietLogger();
    manager.setLoggerDisplay(id, true);
    manager.start();
    const auto lose = [&](int count) {
        files.failNth(MemoryFiles::Call::Write, 1, true, MemoryFiles::Kind::Refused);
        for (int i = 0; i < count; ++i) {
            logNow(id, "lost");
        }
        files.failNothing();
    };
    const auto reported = [&](const std::string& numbers) {
        const std::string text = files.content(files.pathsWith(".log").back());
        const std::size_t note = text.find("WARN  Sonvia_Default: [orvel::log4z::LogerManager::tellLosses:");
        return note != std::string::npos &&
               text.find("]lines lost:" + numbers + "\r\n", note) != std::string::npos;
    };
    lose(3);
    EXPECT_FALSE(reported("3 in all:3")) << "not while it loses lines";
    logNow(id, "kept");
    EXPECT_TRUE(reported("3 in all:3"));
    lose(2);
    logNow(id, "kept again");
    EXPECT_TRUE(reported("2 in all:5"));
    logNow(id, "and again");
    manager.stop();
    const std::string text = files.content(files.pathsWith(".log").back());
    EXPECT_EQ(text.find("lines lost:2"), text.rfind("lines lost:2")) << "once";
    EXPECT_EQ(manager.totalLinesLost(), 5u);
    EXPECT_EQ(manager.totalLinesWritten(), 8u) << "the log's own lines are not among them";
    int shown = 0;
    for (const auto& line : console.coloured()) {
        shown += line.attribute == 6 && line.text.find("lines lost:") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(shown, 2);
}

TEST_F(ManagerFiles, ALogOfErrorsAloneDoesNotTellOfLostLines) {
    const int id = makeQuietLogger();
    manager.setLoggerLevel(id, kLevelError);
    manager.start();
    files.failNth(MemoryFiles::Call::Write, 1);
    logNow(id, "lost");
    logNow(id, "kept");
    manager.stop();
    EXPECT_EQ(manager.totalLinesLost(), 1u);
    EXPECT_EQ(files.content(files.pathsWith(".log").back()).find("lines lost:"), std::string::npos);
}

TEST_F(ManagerFiles, AFolderThatCannotBeWrittenIsReportedOnceAndOtherLoggersGoOn) {
    const int bad = makeQuietLogger("Bad");
    const int good = makeQuietLogger("Good");
    manager.start();
    logNow(good, "fine");
    files.failNth(MemoryFiles::Call::Open, 1);
    for (int i = 0; i < 10; ++i) {
        logNow(bad, "dropped");
        logNow(good, "fine");
    }
    EXPECT_EQ(console.timesColoured("!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n"), 2);
    EXPECT_EQ(files.pathsWith("sonvia_Bad_").size(), 0u);
    manager.setLoggerOutFile(bad, true);
    logNow(bad, "back");
    manager.stop();
    EXPECT_EQ(files.pathsWith("sonvia_Bad_").size(), 1u);
    EXPECT_EQ(manager.totalLinesWritten(), 21u)
        << "of the failed opening the first line is lost; the others went to "
           "a logger without file output";
    EXPECT_EQ(manager.totalLinesLost(), 10u);
}

TEST_F(ManagerFiles, EveryFailingFileCallLeavesAWriterThatWrites) {
    using Call = MemoryFiles::Call;
    for (const Call call : {Call::Open, Call::Write, Call::Remove, Call::CreateFolders}) {
        for (int failing = 1; failing <= 12; ++failing) {
            MemoryFiles disk;
            disk.put("logs/sonvia_version", "1");
            LogerManager engine({clock, disk, console, "host"});
            const int id = engine.createLogger("Test");
            engine.setLoggerPath(id, "logs");
            engine.setLoggerDisplay(id, false);
            engine.setLoggerVersion(id, "2");
            engine.setLoggerZip(id, true);
            engine.setLoggerReserveDelType(id, kReserveByTime);
            engine.setLoggerReserveTime(id, 1);
            disk.failNth(call, failing);
            ASSERT_TRUE(engine.start());
            for (int day = 0; day < 5; ++day) {
                LogRecord* record = engine.makeRecord(id, kLevelError);
                std::memset(record->content + record->contentLength, 'x', 2000);
                record->contentLength += 2000;
                EXPECT_TRUE(engine.pushLog(record, nullptr, 0));
                ASSERT_TRUE(engine.flush(kTimeoutMs));
                clock.advance(86400);
            }
            engine.setLoggerOutFile(id, true);
            LogRecord* record = engine.makeRecord(id, kLevelError);
            EXPECT_TRUE(engine.pushLog(record, nullptr, 0));
            engine.stop();
            EXPECT_EQ(engine.totalRecordsPopped(), 6u);
            EXPECT_GE(disk.pathsWith("sonvia_Test_").size(), 1u);
        }
    }
}

TEST_F(ManagerFiles, LoadHistoryOnAStoppedManagerCountsAtOnce) {
    const int id = makeQuietLogger();
    files.put("logs/sonvia_Test_2020-01-01-00-00-00.log", "copied here");
    EXPECT_TRUE(manager.loadHistory());
    EXPECT_EQ(manager.slot(id).file.history().count(), 1u);
    EXPECT_EQ(manager.slot(id).file.history().writeLength(), 11u);
}

TEST_F(ManagerFiles, LoadHistoryOnARunningManagerCountsWhatIsThere) {
    const int id = makeQuietLogger();
    manager.start();
    logNow(id, "line");
    files.put("logs/sonvia_Test_2020-01-01-00-00-00.log", "copied here");
    EXPECT_TRUE(manager.loadHistory());
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    manager.stop();
    EXPECT_EQ(manager.slot(id).file.history().count(), 2u);
    EXPECT_EQ(manager.slot(id).file.history().writeLength(), files.totalSize("sonvia_Test_"));
}
