#include "log/init_settings.h"

#include "log/write_log.h"
#include "support/log/log_fixture.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

using namespace support;
using namespace orvel;
using namespace orvel::log4z;

TEST(LogSettings, HaveTheirDefaults) {
    const LogInitSettings& settings = logInitSettings();
    EXPECT_EQ(settings.tag, "Sonvia");
    EXPECT_EQ(settings.key, "Sonvia");
    EXPECT_EQ(settings.reserveDelType, "size");
    EXPECT_EQ(settings.reserveTimeSec, 172800);
    EXPECT_EQ(settings.singleSizeMb, 2u);
    EXPECT_EQ(settings.totalSizeMb, 5u);
    EXPECT_FALSE(settings.isZip);
    EXPECT_EQ(&settings, &logInitSettings());
}

TEST(LogSettings, TheNameTablesHoldFourNamesEach) {
    const std::map<std::string, int> levels{{"debug", 0}, {"info", 1}, {"warning", 3}, {"error", 4}};
    EXPECT_EQ(logLevelNames, levels);
    const std::map<std::string, int> types{
        {"size", 0}, {"time", 1}, {"size-or-Time", 2}, {"size-and-Time", 3}};
    EXPECT_EQ(reserveDelTypeNames, types);
}

TEST(LogSettings, AreAppliedToTheLogger) {
    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    const int id = setUpLogger(manager, {}, "logs", kLogError);
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_EQ(slot.settings.name, "sonvia_Sonvia");
    EXPECT_EQ(slot.settings.reserveDelType, kReserveBySize);
    EXPECT_EQ(slot.settings.reserveSeconds, 172800);
    EXPECT_EQ(slot.settings.limitSizeMb, 2u);
    EXPECT_EQ(slot.settings.totalSizeMb, 5u);
    EXPECT_FALSE(slot.settings.isZip);
    EXPECT_EQ(slot.settings.level, kLogError) << "the number unchanged";
    EXPECT_EQ(slot.settings.path, "logs/");
    EXPECT_EQ(slot.settings.version, "2.1.2110122");
    EXPECT_TRUE(slot.settings.monthdir && slot.settings.display);
}

TEST(LogSettings, ThatDifferFromTheManagersDefaultsAreAppliedToo) {
    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    LogInitSettings settings;
    settings.key = "Key";
    settings.reserveDelType = "time";
    settings.reserveTimeSec = 5;
    settings.singleSizeMb = 7;
    settings.totalSizeMb = 9;
    settings.isZip = true;
    const int before = manager.createLogger("Key");
    manager.setLoggerDisplay(before, false);
    manager.setLoggerLevel(before, 6);
    const int id = setUpLogger(manager, settings, "logs", kLogDebug);
    ASSERT_EQ(id, before);
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_EQ(slot.settings.name, "sonvia_Key");
    EXPECT_EQ(slot.settings.reserveDelType, kReserveByTime);
    EXPECT_EQ(slot.settings.reserveSeconds, 5);
    EXPECT_EQ(slot.settings.limitSizeMb, 7u);
    EXPECT_EQ(slot.settings.totalSizeMb, 9u);
    EXPECT_TRUE(slot.settings.isZip);
    EXPECT_EQ(slot.settings.level, kLogDebug);
    EXPECT_TRUE(slot.settings.display);
    EXPECT_TRUE(slot.settings.monthdir);
}

TEST(LogSettings, AReserveDeletionTypeInAnotherLetterCaseLeavesTheManagersDefault) {
    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    LogerManager manager({clock, files, console, "host"});
    LogInitSettings settings;
    settings.reserveDelType = "Size";
    const int id = setUpLogger(manager, settings, nullptr, kLogDebug);
    EXPECT_EQ(manager.slot(id).settings.reserveDelType, kReserveBySizeOrTime);
    EXPECT_EQ(manager.slot(id).settings.path, "./sonvialog/") << "a null path keeps the default folder";
}
