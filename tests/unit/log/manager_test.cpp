#include "platform/thread_id.h"
#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

using Manager = LogEngine;

std::string contentOf(const LogRecord* record) {
    return std::string(record->content, static_cast<std::size_t>(record->contentLength));
}

} // namespace

TEST_F(Manager, TwentyLoggersCanBeMadeAndTheTwentyFirstFails) {
    EXPECT_EQ(manager.activeLoggerCount(), 0u);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(manager.createLogger(("key" + std::to_string(i)).c_str()), i);
    }
    EXPECT_EQ(manager.createLogger("one too many"), -1);
    EXPECT_EQ(manager.createLogger("key7"), 7) << "a known key needs no place";
    EXPECT_EQ(manager.findLogger("one too many"), -1);
    ASSERT_EQ(console.coloured().size(), 1u);
    EXPECT_EQ(console.coloured()[0].attribute, 5u);
    EXPECT_EQ(console.coloured()[0].text,
              "log: CreateLogger can not create|writeover, because loggerid need < LOGGER_MAX! \r\n");
    EXPECT_EQ(manager.activeLoggerCount(), 20u);
}

TEST_F(Manager, AKeyIsPrefixedAndTrimmed) {
    const int id = manager.createLogger("Sonvia \t\r\n");
    EXPECT_EQ(manager.slot(id).key, "sonvia_Sonvia");
    EXPECT_EQ(manager.slot(id).settings.name, "sonvia_Sonvia");
    EXPECT_EQ(manager.createLogger("Sonvia"), id);
    EXPECT_EQ(manager.findLogger("Sonvia\n"), id);
    EXPECT_EQ(manager.findLogger("sonvia"), -1);
    EXPECT_EQ(manager.createLogger(nullptr), -1);
    EXPECT_EQ(manager.findLogger(nullptr), -1);
}

TEST_F(Manager, ARecordCarriesIdLevelTimeAndPrefix) {
    clock.setLocal({2026, 3, 9, 8, 7, 6}, 543);
    LogRecord* record = manager.makeRecord(3, kLevelWarn);
    EXPECT_EQ(record->loggerId, 3);
    EXPECT_EQ(record->type, 0);
    EXPECT_EQ(record->typeValue, 0);
    EXPECT_EQ(record->level, kLevelWarn);
    EXPECT_EQ(record->time, clock.now().seconds);
    EXPECT_EQ(record->precise, 543u);
    const std::string text = contentOf(record);
    EXPECT_EQ(text.find("03-09 08:07:06.543 ["), 0u);
    EXPECT_EQ(text.substr(text.size() - 8), "] WARN  ");
    manager.freeRecord(record);
    EXPECT_EQ(manager.pooledRecords(), 1u);
    manager.freeRecord(nullptr);
}

TEST_F(Manager, AStoppedManagerPrintsItsLineAndFreesTheRecord) {
    const int id = makeQuietLogger();
    EXPECT_FALSE(manager.wouldLog(id, kLevelFatal));
    EXPECT_FALSE(log(id, kLevelError, "too early"));
    EXPECT_EQ(console.plain(), "11111111111 \n");
    EXPECT_EQ(manager.pooledRecords(), 1u);
    EXPECT_FALSE(manager.pushLog(nullptr, nullptr, 0));
    ASSERT_TRUE(manager.start());
    console.forget();
    EXPECT_FALSE(log(id + 1, kLevelError, "no such logger"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 1);
    manager.enableLogger(id, false);
    manager.flush(kTimeoutMs);
    EXPECT_FALSE(log(id, kLevelError, "disabled"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 2);
    EXPECT_TRUE(manager.stop());
    manager.enableLogger(id, true);
    EXPECT_FALSE(manager.wouldLog(id, kLevelFatal));
    EXPECT_FALSE(log(id, kLevelError, "too late"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 3);
    EXPECT_EQ(manager.totalRecordsPushed(), 0u);
}

TEST_F(Manager, ALineBelowTheLoggersLevelIsRefusedSilently) {
    const int id = makeQuietLogger();
    manager.setLoggerLevel(id, kLevelWarn);
    manager.start();
    console.forget();
    EXPECT_FALSE(log(id, kLevelInfo, "low"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 0);
    EXPECT_FALSE(manager.wouldLog(id, kLevelInfo));
    EXPECT_TRUE(manager.wouldLog(id, kLevelWarn));
}

TEST_F(Manager, ALineIsLaidOutAsPrefixTextSourceAndLineEnd) {
    clock.setLocal({2026, 3, 9, 8, 7, 6}, 5);
    const int id = makeQuietLogger();
    manager.start();
    log(id, kLevelInfo, "tag: message", "src\\api/exports.cpp", 42);
    log(id, kLevelError, "tag: no file");
    manager.stop();
    const std::string text = files.content("logs/sonvia_Test_2026-03-09-08-07-06.log");
    const std::string first = text.substr(0, text.find('\n') + 1);
    char thread[16];
    std::snprintf(thread, sizeof thread, "%04u", static_cast<unsigned>(platform::currentThreadId()));
    EXPECT_EQ(first, std::string("03-09 08:07:06.005 [host.app] [") + thread +
                         "] INFO  tag: message exports.cpp:42\r\n");
    EXPECT_NE(text.find("] ERROR tag: no file\r\n"), std::string::npos) << text;
}

TEST_F(Manager, WithoutFilelineNoSourceIsNamed) {
    const int id = makeQuietLogger();
    manager.setLoggerFileLine(id, false);
    manager.start();
    log(id, kLevelError, "text", "file.cpp", 1);
    manager.stop();
    EXPECT_EQ(files.content(files.pathsWith(".log").at(0)).find("file.cpp"), std::string::npos);
}

TEST_F(Manager, ALineLongerThanItsRecordIsTruncatedAndStillHasItsLineEnd) {
    const int id = makeQuietLogger();
    manager.start();
    for (const std::int32_t length : {8188, 8189, 8190, 8191, 8192, 9000, -1}) {
        LogRecord* record = manager.makeRecord(id, kLevelError);
        std::memset(record->content, 'x', LogRecord::kCapacity);
        record->contentLength = length;
        EXPECT_TRUE(manager.pushLog(record, nullptr, 0));
    }
    manager.stop();
    const std::string text = files.content(files.pathsWith(".log").at(0));
    std::string expected;
    for (const std::size_t length : {8188u, 8189u, 8189u, 8189u, 8189u, 8189u, 0u}) {
        expected += std::string(length, 'x') + "\r\n";
    }
    EXPECT_TRUE(text == expected);
}

TEST_F(Manager, ASourceThatDoesNotFitIsTruncated) {
    const int id = makeQuietLogger();
    manager.start();
    LogRecord* record = manager.makeRecord(id, kLevelError);
    std::memset(record->content, 'x', LogRecord::kCapacity);
    record->contentLength = 8185;
    manager.pushLog(record, "file.cpp", 7);
    manager.stop();
    EXPECT_TRUE(files.content(files.pathsWith(".log").at(0)) == std::string(8185, 'x') + " fil\r\n");
}

TEST_F(Manager, ASecondStartIsRefusedAndAStoppedManagerCannotBeStopped) {
    EXPECT_FALSE(manager.stop());
    EXPECT_TRUE(manager.start());
    EXPECT_FALSE(manager.start());
    EXPECT_EQ(console.timesColoured("log already start \r\n"), 1);
    EXPECT_TRUE(manager.stop());
    EXPECT_EQ(console.timesColoured("log stopping \r\n"), 1);
    EXPECT_FALSE(manager.stop());
}

TEST_F(Manager, StopWritesAllThatWaitsDisablesTheLoggersAndFreesThePool) {
    const int id = makeQuietLogger();
    manager.start();
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(log(id, kLevelError, "line " + std::to_string(i)));
    }
    EXPECT_TRUE(manager.stop());
    EXPECT_EQ(manager.totalRecordsPushed(), 1000u);
    EXPECT_EQ(manager.totalRecordsPopped(), 1000u);
    EXPECT_EQ(manager.totalLinesWritten(), 1000u);
    EXPECT_EQ(manager.totalBytesWritten(), files.totalSize(".log"));
    EXPECT_FALSE(manager.isLoggerEnabled(id));
    EXPECT_EQ(manager.activeLoggerCount(), 0u);
    EXPECT_EQ(manager.pooledRecords(), 0u);
}

TEST_F(Manager, AStoppedManagerCanBeStartedAgain) {
    const int id = makeQuietLogger();
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(manager.enableLogger(id, true));
        ASSERT_TRUE(manager.start());
        EXPECT_TRUE(log(id, kLevelError, "line"));
        EXPECT_TRUE(manager.stop());
    }
    EXPECT_EQ(manager.totalLinesWritten(), 3u);
}

TEST_F(Manager, DisplayedLinesAppearInTheColourOfTheirLevel) {
    const int id = manager.createLogger("a");
    manager.setLoggerPath(id, "logs");
    manager.start();
    log(id, kLevelWarn, "yellow");
    log(id, kLevelDebug, "plain");
    manager.stop();
    ASSERT_GE(console.coloured().size(), 1u);
    bool found = false;
    for (const auto& shown : console.coloured()) {
        found = found || (shown.attribute == 6 && shown.text.find("yellow\r\n") != std::string::npos);
    }
    EXPECT_TRUE(found);
    EXPECT_NE(console.plain().find("plain\r\n"), std::string::npos);
}

TEST_F(Manager, ALoggerThatIsNotDisplayedShowsNoLine) {
    const int id = manager.createLogger("a");
    manager.setLoggerPath(id, "logs");
    manager.setLoggerDisplay(id, false);
    manager.start();
    log(id, kLevelWarn, "unseen");
    log(id, kLevelDebug, "unseen");
    manager.stop();
    for (const auto& shown : console.coloured()) {
        EXPECT_EQ(shown.text.find("unseen"), std::string::npos);
    }
    EXPECT_EQ(console.plain().find("unseen"), std::string::npos);
    EXPECT_EQ(manager.totalLinesWritten(), 2u);
}

TEST_F(Manager, ADisabledLoggersFileIsClosedAndItsWaitingLinesAreDropped) {
    const int id = makeQuietLogger();
    manager.start();
    logNow(id, "before");
    manager.enableLogger(id, false);
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    EXPECT_FALSE(manager.wouldLog(id, kLevelFatal));
    EXPECT_FALSE(manager.isLoggerEnabled(id));
    EXPECT_FALSE(manager.slot(id).file.isOpen());
}

TEST_F(Manager, BelowTwentyThousandWaitingRecordsNobodyIsHeldBack) {
    const int id = makeQuietLogger();
    manager.start();
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(manager.wouldLog(id, kLevelError));
    }
    EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(Manager, FlushOfAStoppedManagerReturnsAtOnce) {
    EXPECT_TRUE(manager.flush(kTimeoutMs)) << "nothing was ever pushed";
    const int id = makeQuietLogger();
    manager.start();
    log(id, kLevelError, "line");
    manager.stop();
    EXPECT_TRUE(manager.flush(kTimeoutMs));
}
