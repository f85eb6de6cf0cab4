#include "unit/log/log_fixture.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

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
    EXPECT_EQ(manager.slot(id).name, "sonvia_Sonvia");
    EXPECT_EQ(manager.createLogger("Sonvia"), id);
    EXPECT_EQ(manager.findLogger("Sonvia\n"), id);
    EXPECT_EQ(manager.findLogger("sonvia"), -1);
    EXPECT_EQ(manager.createLogger(nullptr), -1);
    EXPECT_EQ(manager.findLogger(nullptr), -1);
}

TEST_F(Manager, AFreshLoggerHasTheDefaultSettings) {
    const LoggerSlot& slot = manager.slot(manager.createLogger("a"));
    EXPECT_EQ(slot.path, "./sonvialog/");
    EXPECT_EQ(slot.version, "");
    EXPECT_EQ(slot.level, kLevelDebug);
    EXPECT_TRUE(slot.display);
    EXPECT_TRUE(slot.outfile);
    EXPECT_FALSE(slot.monthdir);
    EXPECT_EQ(slot.limitSizeMb, 2u);
    EXPECT_EQ(slot.totalSizeMb, 5u);
    EXPECT_TRUE(slot.enable);
    EXPECT_TRUE(slot.fileline);
    EXPECT_EQ(slot.reserveSeconds, 0);
    EXPECT_FALSE(slot.isZip);
    EXPECT_EQ(slot.reserveDelType, kReserveBySizeOrTime);
    EXPECT_FALSE(manager.slot(1).enable) << "not made yet";
}

TEST_F(Manager, EverySetterRefusesAnInvalidId) {
    manager.createLogger("only");
    for (const int id : {-1, 1, 20, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(manager.enableLogger(id, true));
        EXPECT_FALSE(manager.setLoggerName(id, "n"));
        EXPECT_FALSE(manager.setLoggerPath(id, "p"));
        EXPECT_FALSE(manager.setLoggerPath(id, nullptr));
        EXPECT_FALSE(manager.setLoggerVersion(id, "v"));
        EXPECT_FALSE(manager.setLoggerLevel(id, 1));
        EXPECT_FALSE(manager.setLoggerFileLine(id, true));
        EXPECT_FALSE(manager.setLoggerDisplay(id, true));
        EXPECT_FALSE(manager.setLoggerOutFile(id, true));
        EXPECT_FALSE(manager.setLoggerLimitsize(id, 1));
        EXPECT_FALSE(manager.setLoggerTotalsize(id, 1));
        EXPECT_FALSE(manager.setLoggerMonthdir(id, true));
        EXPECT_FALSE(manager.setLoggerReserveTime(id, 1));
        EXPECT_FALSE(manager.setLoggerZip(id, true));
        EXPECT_FALSE(manager.setLoggerReserveDelType(id, 1));
        EXPECT_FALSE(manager.wouldLog(id, kLevelFatal));
        EXPECT_FALSE(manager.isLoggerEnabled(id));
    }
}

TEST_F(Manager, SettersChangeAStoppedManagersLoggerAtOnce) {
    const int id = manager.createLogger("a");
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_TRUE(manager.setLoggerName(id, "name"));
    EXPECT_TRUE(manager.setLoggerVersion(id, "1"));
    EXPECT_TRUE(manager.setLoggerLevel(id, kLevelAlarm));
    EXPECT_TRUE(manager.setLoggerFileLine(id, false));
    EXPECT_TRUE(manager.setLoggerDisplay(id, false));
    EXPECT_TRUE(manager.setLoggerOutFile(id, false));
    EXPECT_TRUE(manager.setLoggerMonthdir(id, true));
    EXPECT_TRUE(manager.setLoggerZip(id, true));
    EXPECT_TRUE(manager.enableLogger(id, false));
    EXPECT_EQ(slot.name, "name");
    EXPECT_EQ(slot.version, "1");
    EXPECT_EQ(slot.level, kLevelAlarm);
    EXPECT_FALSE(slot.fileline || slot.display || slot.outfile || slot.enable);
    EXPECT_TRUE(slot.monthdir && slot.isZip);
    EXPECT_EQ(manager.pooledRecords(), 0u) << "no record was needed";
}

TEST_F(Manager, APathEndsInASeparatorAndNullKeepsIt) {
    const int id = manager.createLogger("a");
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_TRUE(manager.setLoggerPath(id, nullptr));
    EXPECT_EQ(slot.path, "./sonvialog/");
    manager.setLoggerPath(id, "logs");
    EXPECT_EQ(slot.path, "logs/");
    manager.setLoggerPath(id, "logs/");
    EXPECT_EQ(slot.path, "logs/");
    manager.setLoggerPath(id, "D:\\logs\\");
    EXPECT_EQ(slot.path, "D:\\logs\\");
    EXPECT_TRUE(manager.setLoggerName(id, nullptr));
    EXPECT_EQ(slot.name, "");
}

TEST_F(Manager, ATextOfEightThousandBytesIsTooLong) {
    const int id = manager.createLogger("a");
    EXPECT_TRUE(manager.setLoggerVersion(id, std::string(8191, 'v').c_str()));
    EXPECT_FALSE(manager.setLoggerVersion(id, std::string(8192, 'v').c_str()));
    EXPECT_EQ(manager.slot(id).version.size(), 8191u);
    EXPECT_FALSE(manager.setLoggerPath(id, std::string(8191, 'p').c_str())) << "with its slash";
}

TEST_F(Manager, LimitsOfZeroMeanNoLimit) {
    const int id = manager.createLogger("a");
    manager.setLoggerLimitsize(id, 0);
    manager.setLoggerTotalsize(id, 0);
    EXPECT_EQ(manager.slot(id).limitSizeMb, 4294967295u);
    EXPECT_EQ(manager.slot(id).totalSizeMb, 4294967295u);
    manager.setLoggerLimitsize(id, 3);
    EXPECT_EQ(manager.slot(id).limitSizeMb, 3u);
}

TEST_F(Manager, ANegativeReserveTimeBecomesZeroAndAHugeOneStaysLarge) {
    const int id = manager.createLogger("a");
    manager.setLoggerReserveTime(id, -5);
    EXPECT_EQ(manager.slot(id).reserveSeconds, 0);
    manager.setLoggerReserveTime(id, 172800);
    EXPECT_EQ(manager.slot(id).reserveSeconds, 172800);
    manager.setLoggerReserveTime(id, std::int64_t{1} << 40);
    EXPECT_EQ(manager.slot(id).reserveSeconds, std::numeric_limits<std::int32_t>::max());
}

TEST_F(Manager, AReserveDeletionTypeOfSevenStoresTwo) {
    const int id = manager.createLogger("a");
    for (int type = 0; type < 4; ++type) {
        manager.setLoggerReserveDelType(id, type);
        EXPECT_EQ(manager.slot(id).reserveDelType, type);
    }
    for (const int type : {4, 7, 1000000, -1}) {
        manager.setLoggerReserveDelType(id, kReserveByTime);
        manager.setLoggerReserveDelType(id, type);
        EXPECT_EQ(manager.slot(id).reserveDelType, kReserveBySizeOrTime) << type;
    }
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
    EXPECT_FALSE(log(id, kLevelError, "too early"));
    EXPECT_EQ(console.plain(), "11111111111 \n");
    EXPECT_EQ(manager.pooledRecords(), 1u);
    EXPECT_FALSE(manager.pushLog(nullptr, nullptr, 0));
    ASSERT_TRUE(manager.start());
    console.forget();
    EXPECT_FALSE(log(id + 1, kLevelError, "no such logger"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 1);
    manager.enableLogger(id, false);
    manager.flush(kGuard);
    EXPECT_FALSE(log(id, kLevelError, "disabled"));
    EXPECT_EQ(console.timesPlain("11111111111 \n"), 2);
    EXPECT_TRUE(manager.stop());
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
    EXPECT_EQ(first.find("03-09 08:07:06.005 ["), 0u) << first;
    EXPECT_NE(first.find("] INFO  tag: message exports.cpp:42\r\n"), std::string::npos) << first;
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

TEST_F(Manager, ALineLongerThanItsRecordIsCutAndStillEndsInItsLineEnd) {
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

TEST_F(Manager, ASourceThatDoesNotFitIsCut) {
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

TEST_F(Manager, WhileItRunsSettingsTakeEffectInOrderWithTheLines) {
    const int id = makeQuietLogger();
    manager.start();
    log(id, kLevelError, "one");
    manager.setLoggerName(id, "sonvia_Renamed");
    log(id, kLevelError, "two");
    manager.setLoggerPath(id, "elsewhere");
    log(id, kLevelError, "three");
    manager.setLoggerOutFile(id, false);
    log(id, kLevelError, "four");
    manager.stop();
    const auto holds = [&](const std::string& part, const std::string& text) {
        const auto paths = files.pathsWith(part);
        return paths.size() == 1 &&
               files.content(paths[0]).find("] ERROR " + text + "\r\n") != std::string::npos;
    };
    EXPECT_TRUE(holds("logs/sonvia_Test_", "one"));
    EXPECT_TRUE(holds("logs/sonvia_Renamed_", "two"));
    EXPECT_TRUE(holds("elsewhere/sonvia_Renamed_", "three"));
    EXPECT_EQ(manager.totalLinesWritten(), 4u) << "a line that goes to no file counts as written";
    EXPECT_EQ(manager.totalRecordsPopped(), 4u) << "settings are no lines";
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

TEST_F(Manager, ADisabledLoggersFileIsClosedAndItsWaitingLinesAreDropped) {
    const int id = makeQuietLogger();
    manager.start();
    logNow(id, "before");
    manager.enableLogger(id, false);
    ASSERT_TRUE(manager.flush(kGuard));
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

TEST_F(Manager, TheConfigurationMakesLoggersAndAppliesTheirPairs) {
    EXPECT_TRUE(
        manager.configFromText("[main]\npath=D:\\logs\nname=n\nlevel=alarm\ndisplay=0\noutfile=false\n"
                               "monthdir=1\nlimitsize=7\nfileline=false\nreserve=-3\nunknown=1\n"
                               "[net]\nenable=0\nlimitsize=x\nlevel=loud\nreserve=60\n"));
    const int main = manager.findLogger("Main");
    ASSERT_EQ(main, 0);
    const LoggerSlot& slot = manager.slot(main);
    EXPECT_EQ(slot.key, "sonvia_Main");
    EXPECT_EQ(slot.path, "D:\\logs/");
    EXPECT_EQ(slot.name, "n");
    EXPECT_EQ(slot.level, kLevelAlarm);
    EXPECT_FALSE(slot.display || slot.outfile || slot.fileline);
    EXPECT_TRUE(slot.monthdir);
    EXPECT_EQ(slot.limitSizeMb, 7u);
    EXPECT_EQ(slot.reserveSeconds, 0);
    const LoggerSlot& net = manager.slot(manager.findLogger("net"));
    EXPECT_FALSE(net.enable);
    EXPECT_EQ(net.limitSizeMb, 2u);
    EXPECT_EQ(net.level, kLevelDebug);
    EXPECT_EQ(net.reserveSeconds, 60);
}

TEST_F(Manager, TheSameConfigurationIsNotAppliedTwice) {
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=fatal\n"));
    manager.setLoggerLevel(0, kLevelTrace);
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=fatal\n"));
    EXPECT_EQ(manager.slot(0).level, kLevelTrace);
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=error\n"));
    EXPECT_EQ(manager.slot(0).level, kLevelError);
}

TEST_F(Manager, ConfigurationWarningsAreShownInTheColourOfFatal) {
    EXPECT_TRUE(manager.configFromText("level=info\n[a]\n[a]\n"));
    EXPECT_EQ(console.timesColoured("log4z configure warning: not found current logger name:[] at line:1, "
                                    "key=level, value=info \r\n"),
              1);
    EXPECT_EQ(console.timesColoured("log4z configure warning: duplicate logger key:[a] at line: 3 \r\n"), 1);
}

TEST_F(Manager, AConfigurationThatCannotBeAppliedIsReported) {
    EXPECT_FALSE(manager.configFromText(nullptr));
    const std::string report =
        " !!! !!! !!! !!!\r\n !!! !!! log4z load config file error \r\n !!! !!! !!! !!!\r\n";
    EXPECT_EQ(console.plain(), report);
    std::string tooMany;
    for (int i = 0; i < 21; ++i) {
        tooMany += "[l" + std::to_string(i) + "]\nlevel=fatal\n";
    }
    EXPECT_FALSE(manager.configFromText(tooMany.c_str()));
    EXPECT_EQ(console.plain(), report + report);
    EXPECT_EQ(manager.slot(19).level, kLevelFatal) << "the others are applied";
}

TEST_F(Manager, AConfigurationFileIsReadOnceAndThenUpdatedWhenItsContentChanges) {
    files.put("conf/log.ini", "[a]\nlevel=fatal\n");
    EXPECT_TRUE(manager.config("conf/log.ini"));
    EXPECT_EQ(manager.slot(0).level, kLevelFatal);
    EXPECT_FALSE(manager.config("other.ini"));
    EXPECT_EQ(console.plain(),
              " !!! !!! !!! !!!\r\n !!! !!! log4z configure error: too many calls to Config. the old "
              "config file=conf/log.ini,  the new config file=other.ini !!! !!! \r\n"
              " !!! !!! !!! !!!\r\n");
    manager.setLoggerLevel(0, kLevelTrace);
    EXPECT_TRUE(manager.updateConfig());
    EXPECT_EQ(manager.slot(0).level, kLevelTrace) << "not changed, not applied";
    files.put("conf/log.ini", "[a]\nlevel=error\n");
    EXPECT_TRUE(manager.updateConfig());
    EXPECT_EQ(manager.slot(0).level, kLevelError);
}

TEST_F(Manager, AConfigurationFileThatCannotBeOpenedIsReported) {
    EXPECT_FALSE(manager.updateConfig()) << "there is none yet";
    EXPECT_FALSE(manager.config("missing.ini"));
    EXPECT_EQ(console.plain(),
              " !!! !!! !!! !!!\r\n !!! !!! log4z load config file error. filename=missing.ini  "
              "!!! !!! \r\n !!! !!! !!! !!!\r\n");
    EXPECT_FALSE(manager.updateConfig());
}

TEST_F(Manager, TheWriterThreadLooksForAChangedConfigurationWhenTheIntervalIsOver) {
    files.put("conf/log.ini", "[a]\nlevel=fatal\npath=logs\ndisplay=0\n");
    manager.config("conf/log.ini");
    EXPECT_TRUE(manager.setConfigCheckInterval(10));
    manager.start();
    logNow(0, "the interval has begun", kLevelFatal);
    files.put("conf/log.ini", "[a]\nlevel=trace\npath=logs\ndisplay=0\n");
    clock.advance(11);
    for (unsigned waited = 0; !manager.wouldLog(0, kLevelTrace) && waited < kGuard; ++waited) {
        platform::systemClock().sleep(1);
    }
    EXPECT_TRUE(manager.wouldLog(0, kLevelTrace));
}

TEST_F(Manager, FlushOfAStoppedManagerReturnsAtOnce) {
    EXPECT_TRUE(manager.flush(kGuard)) << "nothing was ever pushed";
    const int id = makeQuietLogger();
    manager.start();
    log(id, kLevelError, "line");
    manager.stop();
    EXPECT_TRUE(manager.flush(kGuard));
}

TEST_F(Manager, SettersAndStopFromTwoThreadsLeaveNothingBehind) {
    for (int round = 0; round < 20; ++round) {
        const int id = makeQuietLogger();
        manager.enableLogger(id, true);
        manager.start();
        std::thread setter([&] {
            for (int i = 0; i < 200; ++i) {
                EXPECT_TRUE(manager.setLoggerName(id, i % 2 == 0 ? "sonvia_even" : "sonvia_odd"));
                log(id, kLevelError, "line");
            }
        });
        manager.stop();
        setter.join();
        EXPECT_EQ(manager.slot(id).name, "sonvia_odd") << "the last change is in force";
        EXPECT_EQ(manager.totalLinesWritten(), manager.totalRecordsPushed());
    }
}
