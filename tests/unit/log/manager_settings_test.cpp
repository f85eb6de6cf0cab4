// What the setters and the configuration make of a logger.

#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <limits>
#include <string>
#include <thread>

using namespace support;
using namespace orvel::log4z;

namespace {

using ManagerSettings = LogEngine;
using ManagerConfig = LogEngine;

} // namespace

TEST_F(ManagerSettings, AFreshLoggerHasTheDefaultSettings) {
    const LoggerSlot& slot = manager.slot(manager.createLogger("a"));
    EXPECT_EQ(slot.settings.path, "./sonvialog/");
    EXPECT_EQ(slot.settings.version, "");
    EXPECT_EQ(slot.settings.level, kLevelDebug);
    EXPECT_TRUE(slot.settings.display);
    EXPECT_TRUE(slot.settings.outfile);
    EXPECT_FALSE(slot.settings.monthdir);
    EXPECT_EQ(slot.settings.limitSizeMb, 2u);
    EXPECT_EQ(slot.settings.totalSizeMb, 5u);
    EXPECT_TRUE(slot.settings.enable);
    EXPECT_TRUE(slot.settings.fileline);
    EXPECT_EQ(slot.settings.reserveSeconds, 0);
    EXPECT_FALSE(slot.settings.isZip);
    EXPECT_EQ(slot.settings.reserveDelType, kReserveBySizeOrTime);
    EXPECT_FALSE(manager.isLoggerEnabled(1)) << "not made yet";
}

TEST_F(ManagerSettings, EverySetterRefusesAnInvalidId) {
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

TEST_F(ManagerSettings, SettersChangeAStoppedManagersLoggerAtOnce) {
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
    EXPECT_EQ(slot.settings.name, "name");
    EXPECT_EQ(slot.settings.version, "1");
    EXPECT_EQ(slot.settings.level, kLevelAlarm);
    EXPECT_FALSE(slot.settings.fileline || slot.settings.display || slot.settings.outfile ||
                 slot.settings.enable);
    EXPECT_TRUE(slot.settings.monthdir && slot.settings.isZip);
    EXPECT_EQ(manager.pooledRecords(), 0u) << "no record was needed";
}

TEST_F(ManagerSettings, APathEndsInASeparatorAndNullKeepsIt) {
    const int id = manager.createLogger("a");
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_TRUE(manager.setLoggerPath(id, nullptr));
    EXPECT_EQ(slot.settings.path, "./sonvialog/");
    manager.setLoggerPath(id, "logs");
    EXPECT_EQ(slot.settings.path, "logs/");
    manager.setLoggerPath(id, "logs/");
    EXPECT_EQ(slot.settings.path, "logs/");
    manager.setLoggerPath(id, "D:\\logs\\");
    EXPECT_EQ(slot.settings.path, "D:\\logs\\");
    EXPECT_TRUE(manager.setLoggerName(id, nullptr));
    EXPECT_EQ(slot.settings.name, "");
}

TEST_F(ManagerSettings, ATextOfEightThousandBytesIsTooLong) {
    const int id = manager.createLogger("a");
    EXPECT_TRUE(manager.setLoggerVersion(id, std::string(8191, 'v').c_str()));
    EXPECT_FALSE(manager.setLoggerVersion(id, std::string(8192, 'v').c_str()));
    EXPECT_EQ(manager.slot(id).settings.version.size(), 8191u);
    EXPECT_FALSE(manager.setLoggerPath(id, std::string(8191, 'p').c_str())) << "with its slash";
}

TEST_F(ManagerSettings, LimitsOfZeroMeanNoLimit) {
    const int id = manager.createLogger("a");
    manager.setLoggerLimitsize(id, 0);
    manager.setLoggerTotalsize(id, 0);
    EXPECT_EQ(manager.slot(id).settings.limitSizeMb, 4294967295u);
    EXPECT_EQ(manager.slot(id).settings.totalSizeMb, 4294967295u);
    manager.setLoggerLimitsize(id, 3);
    EXPECT_EQ(manager.slot(id).settings.limitSizeMb, 3u);
}

TEST_F(ManagerSettings, ANegativeReserveTimeBecomesZeroAndAHugeOneStaysLarge) {
    const int id = manager.createLogger("a");
    manager.setLoggerReserveTime(id, -5);
    EXPECT_EQ(manager.slot(id).settings.reserveSeconds, 0);
    manager.setLoggerReserveTime(id, 172800);
    EXPECT_EQ(manager.slot(id).settings.reserveSeconds, 172800);
    manager.setLoggerReserveTime(id, std::int64_t{1} << 40);
    EXPECT_EQ(manager.slot(id).settings.reserveSeconds, std::numeric_limits<std::int32_t>::max());
}

TEST_F(ManagerSettings, AReserveDeletionTypeOfSevenStoresTwo) {
    const int id = manager.createLogger("a");
    for (int type = 0; type < 4; ++type) {
        manager.setLoggerReserveDelType(id, type);
        EXPECT_EQ(manager.slot(id).settings.reserveDelType, type);
    }
    for (const int type : {4, 7, 1000000, -1}) {
        manager.setLoggerReserveDelType(id, kReserveByTime);
        manager.setLoggerReserveDelType(id, type);
        EXPECT_EQ(manager.slot(id).settings.reserveDelType, kReserveBySizeOrTime) << type;
    }
}

TEST_F(ManagerSettings, WhileItRunsSettingsTakeEffectInOrderWithTheLines) {
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

TEST_F(ManagerSettings, SettersAndStopFromTwoThreadsLeakNothing) {
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
        EXPECT_EQ(manager.slot(id).settings.name, "sonvia_odd") << "the last change is in force";
        EXPECT_EQ(manager.totalLinesWritten(), manager.totalRecordsPushed());
    }
}

TEST_F(ManagerSettings, SettersAndStartFromTwoThreadsShareNoSetting) {
    const int id = makeQuietLogger();
    for (int round = 0; round < 100; ++round) {
        manager.enableLogger(id, true);
        std::thread setter([&] {
            for (int i = 0; i < 50; ++i) {
                EXPECT_TRUE(manager.setLoggerPath(id, i % 2 == 0 ? "logs/even" : "logs/odd"));
                EXPECT_TRUE(manager.loadHistory());
            }
        });
        manager.start();
        setter.join();
        manager.stop();
        EXPECT_EQ(manager.slot(id).settings.path, "logs/odd/") << "the last change is in force";
    }
}

TEST_F(ManagerConfig, TheConfigurationMakesLoggersAndAppliesTheirPairs) {
    EXPECT_TRUE(
        manager.configFromText("[main]\npath=D:\\logs\nname=n\nlevel=alarm\ndisplay=0\noutfile=false\n"
                               "monthdir=1\nlimitsize=7\nfileline=false\nreserve=-3\nunknown=1\n"
                               "[net]\nenable=0\nlimitsize=x\nlevel=loud\nreserve=60\n"));
    const int main = manager.findLogger("Main");
    ASSERT_EQ(main, 0);
    const LoggerSlot& slot = manager.slot(main);
    EXPECT_EQ(slot.key, "sonvia_Main");
    EXPECT_EQ(slot.settings.path, "D:\\logs/");
    EXPECT_EQ(slot.settings.name, "n");
    EXPECT_EQ(slot.settings.level, kLevelAlarm);
    EXPECT_FALSE(slot.settings.display || slot.settings.outfile || slot.settings.fileline);
    EXPECT_TRUE(slot.settings.monthdir);
    EXPECT_EQ(slot.settings.limitSizeMb, 7u);
    EXPECT_EQ(slot.settings.reserveSeconds, 0);
    const LoggerSlot& net = manager.slot(manager.findLogger("net"));
    EXPECT_FALSE(net.settings.enable);
    EXPECT_EQ(net.settings.limitSizeMb, 2u);
    EXPECT_EQ(net.settings.level, kLevelDebug);
    EXPECT_EQ(net.settings.reserveSeconds, 60);
}

TEST_F(ManagerConfig, TheSameConfigurationIsNotAppliedTwice) {
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=fatal\n"));
    manager.setLoggerLevel(0, kLevelTrace);
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=fatal\n"));
    EXPECT_EQ(manager.slot(0).settings.level, kLevelTrace);
    EXPECT_TRUE(manager.configFromText("[a]\nlevel=error\n"));
    EXPECT_EQ(manager.slot(0).settings.level, kLevelError);
}

TEST_F(ManagerConfig, ConfigurationWarningsAreShownInTheColourOfFatal) {
    EXPECT_TRUE(manager.configFromText("level=info\n[a]\n[a]\n"));
    EXPECT_EQ(console.timesColoured("log4z configure warning: not found current logger name:[] at line:1, "
                                    "key=level, value=info \r\n"),
              1);
    EXPECT_EQ(console.timesColoured("log4z configure warning: duplicate logger key:[a] at line: 3 \r\n"), 1);
}

TEST_F(ManagerConfig, AConfigurationThatCannotBeAppliedIsReported) {
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
    EXPECT_EQ(manager.slot(19).settings.level, kLevelFatal) << "the others are applied";
}

TEST_F(ManagerConfig, AConfigurationFileIsReadOnceAndThenUpdatedWhenItsContentChanges) {
    files.put("conf/log.ini", "[a]\nlevel=fatal\n");
    EXPECT_TRUE(manager.config("conf/log.ini"));
    EXPECT_EQ(manager.slot(0).settings.level, kLevelFatal);
    EXPECT_FALSE(manager.config("other.ini"));
    EXPECT_EQ(console.plain(),
              " !!! !!! !!! !!!\r\n !!! !!! log4z configure error: too many calls to Config. the old "
              "config file=conf/log.ini,  the new config file=other.ini !!! !!! \r\n"
              " !!! !!! !!! !!!\r\n");
    manager.setLoggerLevel(0, kLevelTrace);
    EXPECT_TRUE(manager.updateConfig());
    EXPECT_EQ(manager.slot(0).settings.level, kLevelTrace) << "not changed, not applied";
    files.put("conf/log.ini", "[a]\nlevel=error\n");
    EXPECT_TRUE(manager.updateConfig());
    EXPECT_EQ(manager.slot(0).settings.level, kLevelError);
}

TEST_F(ManagerConfig, AConfigurationFileThatCannotBeOpenedIsReported) {
    EXPECT_FALSE(manager.updateConfig()) << "there is none yet";
    EXPECT_FALSE(manager.config("missing.ini"));
    EXPECT_EQ(console.plain(),
              " !!! !!! !!! !!!\r\n !!! !!! log4z load config file error. filename=missing.ini  "
              "!!! !!! \r\n !!! !!! !!! !!!\r\n");
    EXPECT_FALSE(manager.updateConfig());
}

namespace {

/// An engine with a configuration file whose level shows whether it was read again.
class ManagerHotUpdate : public LogEngine {
protected:
    void startWith(std::uint32_t interval) {
        put("error");
        ASSERT_TRUE(manager.config("conf/log.ini"));
        EXPECT_TRUE(manager.setConfigCheckInterval(interval));
        ASSERT_TRUE(manager.start());
        letTheWriterRest();
    }

    void put(const std::string& level) {
        files.put("conf/log.ini", "[a]\nlevel=" + level + "\npath=logs\ndisplay=0\n");
    }

    /// The writer runs out of lines, rests and looks at the configuration, at least once.
    void letTheWriterRest() {
        for (int i = 0; i < 2; ++i) {
            const std::uint64_t before = files.totalSize(".log");
            log(0, kLevelFatal, "written out when the queue is empty");
            ASSERT_TRUE(
                eventually("the line is in its file", [&] { return files.totalSize(".log") != before; }));
        }
        ASSERT_TRUE(manager.flush(kTimeoutMs)); // what the look has queued is in force
    }

    int levelAfterRest() {
        letTheWriterRest();
        return manager.slot(0).settings.level;
    }
};

} // namespace

TEST_F(ManagerHotUpdate, AChangedFileIsReadAgainWhenMoreThanTheIntervalIsOver) {
    startWith(10);
    put("fatal");
    clock.advance(10);
    EXPECT_EQ(levelAfterRest(), kLevelError) << "exactly the interval, counted from the start";
    clock.advance(1);
    EXPECT_EQ(levelAfterRest(), kLevelFatal);
    put("error");
    clock.advance(10);
    EXPECT_EQ(levelAfterRest(), kLevelFatal) << "counted from the last look";
    clock.advance(1);
    EXPECT_EQ(levelAfterRest(), kLevelError);
}

TEST_F(ManagerHotUpdate, TheFirstCheckIsAnIntervalAfterTheStart) {
    put("error");
    ASSERT_TRUE(manager.config("conf/log.ini"));
    manager.setConfigCheckInterval(10);
    put("fatal");
    ASSERT_TRUE(manager.start());
    EXPECT_EQ(levelAfterRest(), kLevelError);
}

TEST_F(ManagerHotUpdate, AClockThatIsPutBackMakesForALookAtOnce) {
    startWith(10);
    put("fatal");
    clock.advance(-1000);
    EXPECT_EQ(levelAfterRest(), kLevelFatal);
}

TEST_F(ManagerHotUpdate, WithoutAnIntervalNobodyLooks) {
    startWith(0);
    put("fatal");
    clock.advance(3600);
    EXPECT_EQ(levelAfterRest(), kLevelError);
    EXPECT_TRUE(manager.updateConfig()) << "it could be read";
}
