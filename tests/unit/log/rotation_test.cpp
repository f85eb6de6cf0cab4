#include "log/rotation.h"

#include "log/log_names.h"
#include "unit/log/fake_clock.h"
#include "unit/log/memory_files.h"
#include "unit/log/recording_console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

using namespace orvel::log4z;

namespace {

constexpr std::size_t kMb = 1048576;

class RotationTest : public ::testing::Test {
protected:
    RotationTest() {
        slot.enable = true;
        slot.name = "sonvia_Test";
        slot.path = "logs/";
        slot.reserveDelType = kReserveBySize;
        clock.setLocal({2026, 3, 9, 8, 0, 0});
    }

    /// Writes one line of that many bytes at the present time; false when there is no file for it.
    bool line(std::size_t bytes = 100) {
        if (!rotation.openFor(slot, clock.now().seconds)) {
            return false;
        }
        slot.file.write(std::string(bytes, 'x').data(), bytes);
        slot.file.flush();
        return true;
    }

    std::vector<std::string> logs() const { return files.pathsWith(".log"); }

    FakeClock clock;
    MemoryFiles files;
    RecordingConsole screen;
    ConsoleEcho console{screen};
    Rotation rotation{clock, files, console};
    LoggerSlot slot;
};

std::string compressible(std::size_t size) {
    std::string text;
    while (text.size() < size) {
        text +=
            "03-09 08:00:00." + std::to_string(text.size() % 1000) + " [host] [1234] INFO  tag: message\r\n";
    }
    text.resize(size);
    return text;
}

} // namespace

TEST_F(RotationTest, TheFolderIsMadeAndTheFileNamedAfterTheFirstLine) {
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-00.log"});
    EXPECT_EQ(slot.history.count(), 1u);
    EXPECT_EQ(slot.history.writeLength(), 0u) << "counted when it is closed";
}

TEST_F(RotationTest, AFileTakesLinesUntilItIsOverItsLimit) {
    slot.limitSizeMb = 1;
    EXPECT_TRUE(line(kMb));
    clock.advance(1);
    EXPECT_TRUE(line(1)); // exactly at the limit is not over it
    EXPECT_EQ(logs().size(), 1u);
    clock.advance(1);
    EXPECT_TRUE(line(1));
    ASSERT_EQ(logs().size(), 2u);
    EXPECT_EQ(files.content(logs()[0]).size(), kMb + 1);
    EXPECT_EQ(slot.history.writeLength(), kMb + 1);
}

TEST_F(RotationTest, WithoutALimitAFileStaysBelowFourGigabytes) {
    slot.limitSizeMb = kNoLimit;
    EXPECT_TRUE(line(20 * kMb));
    EXPECT_TRUE(line());
    EXPECT_EQ(logs().size(), 1u);
}

TEST_F(RotationTest, ALineAfterLocalMidnightStartsANewFileEvenWhenTheOldOneIsSmall) {
    clock.setLocal({2026, 2, 28, 23, 59, 59}, 999);
    EXPECT_TRUE(line(1));
    clock.setLocal({2026, 3, 1, 0, 0, 0});
    EXPECT_TRUE(line(1));
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-02-28-23-59-59.log",
                                                "logs/sonvia_Test_2026-03-01-00-00-00.log"}));
}

TEST_F(RotationTest, ALineOfAnEarlierDayStartsANewFile) {
    EXPECT_TRUE(line());
    clock.advance(-86400);
    EXPECT_TRUE(line());
    clock.advance(-3600);
    EXPECT_TRUE(line()) << "the same day";
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-08-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-09-08-00-00.log"}));
}

TEST_F(RotationTest, ADayIsEightySixThousandFourHundredSecondsAlsoWhenTheClockIsPutBack) {
    // 2026-11-01 lasts 25 hours: its last hour has a file of its own.
    FakeClock eastern(
        [](std::int64_t utc) { return std::int64_t{utc < 1793512800 ? -4 * 3600 : -5 * 3600}; });
    Rotation there(eastern, files, console);
    const std::int64_t midnight = eastern.fromLocal({2026, 11, 1, 0, 0, 0});
    EXPECT_TRUE(there.openFor(slot, midnight));
    EXPECT_TRUE(there.openFor(slot, midnight + 86399));
    EXPECT_EQ(logs().size(), 1u);
    slot.file.write("x", 1);
    slot.file.flush();
    EXPECT_TRUE(there.openFor(slot, midnight + 86400));
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-11-01-00-00-00.log",
                                                "logs/sonvia_Test_2026-11-01-23-00-00.log"}));
}

TEST_F(RotationTest, MonthFoldersFollowTheLocalTimeOfTheLine) {
    slot.monthdir = true;
    clock.setLocal({2026, 1, 31, 23, 59, 59});
    EXPECT_TRUE(line());
    clock.advance(1);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/2026_01/sonvia_Test_2026-01-31-23-59-59.log",
                                                "logs/2026_02/sonvia_Test_2026-02-01-00-00-00.log"}));
}

TEST_F(RotationTest, AUsedNameAddsASecondAndIsToldFromTheSecondTryOn) {
    files.put("logs/sonvia_Test_2026-03-09-08-00-00.log", "old");
    files.put("logs/sonvia_Test_2026-03-09-08-00-01.log", ""); // an empty one is taken over
    EXPECT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-01.log").size(), 100u);
    EXPECT_EQ(screen.plain(), "tryCnt:2 buf:logs/sonvia_Test_2026-03-09-08-00-01.log");
}

TEST_F(RotationTest, AddedSecondsCarryOverMinuteHourAndYear) {
    clock.setLocal({2026, 12, 31, 23, 59, 59});
    files.put("logs/sonvia_Test_2026-12-31-23-59-59.log", "old");
    EXPECT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2027-01-01-00-00-00.log"));
}

TEST_F(RotationTest, WithZipTheNameOfAnArchiveIsUsedToo) {
    slot.isZip = true;
    files.put("logs/sonvia_Test_2026-03-09-08-00-00.log.zip", "old");
    EXPECT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-01.log"));
}

TEST_F(RotationTest, AfterFiveUsedNamesTheFifthIsAppendedTo) {
    for (int i = 0; i < 5; ++i) {
        files.put("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(i) + ".log", "old");
    }
    EXPECT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-04.log").size(), 103u);
    EXPECT_EQ(slot.file.length(), 103u) << "the length begins with what was there";
    EXPECT_EQ(logs().size(), 5u);
}

TEST_F(RotationTest, AFullFileIsNotOpenedAgainForEveryLineOfASecondWhoseNamesAreUsed) {
    slot.limitSizeMb = 1;
    slot.totalSizeMb = kNoLimit;
    for (int i = 0; i < 5; ++i) {
        files.put("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(i) + ".log",
                  std::string(kMb + 1, 'o'));
    }
    EXPECT_TRUE(line());
    const int opened = files.calls(MemoryFiles::Call::Open);
    EXPECT_TRUE(line());
    EXPECT_TRUE(line());
    EXPECT_EQ(files.calls(MemoryFiles::Call::Open), opened);
    clock.advance(1);
    EXPECT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-05.log"));
}

TEST_F(RotationTest, AFailedOpeningIsFramedOnceAndSwitchesFileOutputOff) {
    ASSERT_TRUE(line());
    files.failNth(MemoryFiles::Call::Open, 1);
    clock.advance(86400);
    EXPECT_FALSE(line());
    EXPECT_FALSE(slot.outfile);
    ASSERT_EQ(screen.coloured().size(), 3u);
    EXPECT_EQ(screen.coloured()[0].text, "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n");
    EXPECT_EQ(screen.coloured()[1].text,
              "can not open log file logs/sonvia_Test_2026-03-10-08-00-00.log. \r\n");
    EXPECT_EQ(screen.coloured()[2].text, "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n");
    EXPECT_EQ(screen.coloured()[1].attribute, 5u);
    slot.outfile = true;
    EXPECT_TRUE(line()) << "set again, it writes again";
}

TEST_F(RotationTest, ADeletedFolderIsMadeAnewAtTheNextOpening) {
    ASSERT_TRUE(line());
    files.removeFolder("logs");
    clock.advance(86400);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-10-08-00-00.log"});
}

TEST_F(RotationTest, DeletionStartsOnceTheHistoryHoldsThreeMegabytes) {
    // 2 MB each, 5 MB in all: two closed files are 4 MB, so the oldest goes before the third is written.
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(line(2 * kMb + 1));
        clock.advance(1);
    }
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-01.log",
                                                "logs/sonvia_Test_2026-03-09-08-00-02.log"}));
    EXPECT_EQ(screen.plain(), "historyWriteLen:4194306 historySizeMb:4 setLimitsizeMb:2 setTotalsizeMb:5");
    EXPECT_EQ(slot.history.writeLength(), 2 * kMb + 1);
}

TEST_F(RotationTest, AFailedDeletionIsIgnored) {
    files.failNth(MemoryFiles::Call::Remove, 1);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(line(2 * kMb + 1));
        clock.advance(1);
    }
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-00.log")) << "could not be deleted";
    EXPECT_FALSE(files.exists("logs/sonvia_Test_2026-03-09-08-00-01.log"));
    EXPECT_EQ(slot.history.count(), 2u);
}

TEST_F(RotationTest, TheOldestFilesGoWhenTheirTimeIsOver) {
    slot.reserveDelType = kReserveByTime;
    slot.reserveSeconds = 172800;
    for (int day = 0; day < 5; ++day) {
        EXPECT_TRUE(line());
        clock.advance(86400);
    }
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-11-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-12-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-13-08-00-00.log"}));
}

TEST_F(RotationTest, AFileClosedByAChangedSettingIsStillCounted) {
    ASSERT_TRUE(line(kMb));
    slot.file.close();
    clock.advance(1);
    ASSERT_TRUE(line(10));
    EXPECT_EQ(slot.history.writeLength(), kMb);
    EXPECT_EQ(slot.history.count(), 2u);
}

TEST_F(RotationTest, FilesDeletedByTheUserAreNotMissedForEver) {
    slot.limitSizeMb = 1;
    ASSERT_TRUE(line(kMb + 1));
    clock.advance(1);
    ASSERT_TRUE(line(kMb + 1));
    files.removeFolder("logs");
    for (int i = 0; i < 20; ++i) {
        clock.advance(1);
        ASSERT_TRUE(line(kMb + 1));
    }
    // 1 + 4 MB: the file being written and the last four, as if nothing had happened.
    EXPECT_EQ(logs().size(), 4u);
}

TEST_F(RotationTest, TheFileBeingWrittenIsNeverDeleted) {
    slot.limitSizeMb = 5; // alone as large as all files may be: every old file goes
    clock.setLocal({2026, 3, 9, 8, 0, 0});
    for (int i = 0; i < 5; ++i) {
        files.put("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(i) + ".log", "old");
    }
    rotation.loadHistory(0, slot);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-04.log"});
    EXPECT_EQ(slot.history.count(), 1u);
}

TEST_F(RotationTest, AClosedFileIsPackedAndItsArchiveStandsInTheHistory) {
    slot.isZip = true;
    slot.limitSizeMb = 1;
    const std::string text = compressible(kMb + 1);
    ASSERT_TRUE(rotation.openFor(slot, clock.now().seconds));
    slot.file.write(text.data(), text.size());
    clock.advance(1);
    ASSERT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-00.log.zip",
                                                "logs/sonvia_Test_2026-03-09-08-00-01.log"}));
    EXPECT_EQ(slot.history.oldest().path, "logs/sonvia_Test_2026-03-09-08-00-00.log.zip");
    EXPECT_EQ(slot.history.writeLength(), files.content(logs()[0]).size());
    const std::string told = screen.plain();
    EXPECT_EQ(told.find("logLen:1048577 zipLen:" + std::to_string(slot.history.writeLength()) + " ratio0."),
              0u)
        << told;
    EXPECT_NE(told.find(" historyWriteLen:0 back second name:logs/sonvia_Test_2026-03-09-08-00-00.log.zip "),
              std::string::npos)
        << told;
}

TEST_F(RotationTest, AnArchiveThatIsNotSmallerIsRemovedAndTheLogKept) {
    slot.isZip = true;
    ASSERT_TRUE(line(10));
    clock.advance(86400);
    ASSERT_TRUE(line(10));
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-00.log"));
    EXPECT_EQ(files.pathsWith(".zip").size(), 0u);
    EXPECT_EQ(slot.history.writeLength(), 10u);
}

TEST_F(RotationTest, AnEmptyLogHasTheRatioOne) {
    slot.isZip = true;
    ASSERT_TRUE(line(0));
    clock.advance(86400);
    ASSERT_TRUE(line());
    EXPECT_NE(screen.plain().find("logLen:0 "), std::string::npos);
    EXPECT_NE(screen.plain().find(" ratio1.00 "), std::string::npos);
}

TEST_F(RotationTest, AnArchiveThatCannotBeFinishedLosesNoLog) {
    slot.isZip = true;
    slot.limitSizeMb = 1;
    const std::string text = compressible(kMb + 1);
    for (int failing = 1; failing < 8; ++failing) {
        ASSERT_TRUE(rotation.openFor(slot, clock.now().seconds));
        slot.file.write(text.data(), text.size());
        slot.file.flush();
        const std::string log = slot.history.newest().path;
        files.failNth(MemoryFiles::Call::Write, failing);
        const int before = files.calls(MemoryFiles::Call::Write);
        clock.advance(86400);
        ASSERT_TRUE(rotation.openFor(slot, clock.now().seconds));
        const bool failed = files.calls(MemoryFiles::Call::Write) - before >= failing;
        files.failNothing();
        EXPECT_EQ(files.exists(log), failed) << "write " << failing;
        EXPECT_EQ(files.exists(log + ".zip"), !failed) << "write " << failing;
        EXPECT_TRUE(!failed || files.content(log) == text);
    }
}

TEST_F(RotationTest, ALogThatCannotBeReadToItsEndIsNotPacked) {
    slot.isZip = true;
    const std::string text = compressible(200000);
    ASSERT_TRUE(rotation.openFor(slot, clock.now().seconds));
    slot.file.write(text.data(), text.size());
    files.limitReads(100000);
    clock.advance(86400);
    ASSERT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-00.log"), text);
    EXPECT_EQ(files.pathsWith(".zip").size(), 0u);
}

TEST_F(RotationTest, AChangedVersionClearsTheFolderBeforeLoggingResumes) {
    files.put("logs/sonvia_version", "1.0");
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", "old");
    files.put("logs/sonvia_Other.log", "old");
    files.put("logs/2026_02/sonvia_Test_2026-02-08-08-00-00.log.zip", "old");
    files.put("logs/host.log", "not ours");
    files.put("logs/sonvia_notes.txt", "no log");
    slot.version = "2.1.2110122";
    rotation.loadHistory(0, slot);
    EXPECT_EQ(files.paths(),
              (std::vector<std::string>{"logs/host.log", "logs/sonvia_notes.txt", "logs/sonvia_version"}));
    EXPECT_EQ(files.content("logs/sonvia_version"), "2.1.2110122");
    EXPECT_EQ(screen.plain(), "curVer:[11,2.1.2110122] lstVer:[3,1.0]clear history num:3");
    EXPECT_TRUE(slot.history.empty());
}

TEST_F(RotationTest, TheSecondStartOfAVersionKeepsTheLogsOfTheFirst) {
    slot.version = "2.1.2110122";
    rotation.loadHistory(0, slot); // the folder does not exist yet
    ASSERT_TRUE(line());
    slot.file.close();
    LoggerSlot next;
    next.enable = true;
    next.name = slot.name;
    next.path = slot.path;
    next.version = slot.version;
    screen.forget();
    rotation.loadHistory(0, next);
    EXPECT_EQ(logs().size(), 1u);
    EXPECT_EQ(screen.plain(), "curVer:[11,2.1.2110122] lstVer:[11,2.1.2110122]"
                              "idx:0 historyLog size:1 historyWrite:100 byte");
}

TEST_F(RotationTest, AVersionLongerThanItsFileClearsTheFolderOnlyOnce) {
    slot.version = std::string(400, 'v');
    rotation.loadHistory(0, slot);
    ASSERT_TRUE(line());
    slot.file.close();
    rotation.loadHistory(0, slot);
    EXPECT_EQ(logs().size(), 1u);
}

TEST_F(RotationTest, TheHistoryIsSortedByTheTimesInTheNames) {
    files.put("logs/2026_02/sonvia_Test_2026-02-08-08-00-00.log.zip", "1");
    files.put("logs/sonvia_Test_2026-01-08-08-00-00.log", "22");
    files.put("logs/2026_03/sonvia_Test_2026-03-08-08-00-00.log", "333");
    files.put("logs/sonvia_Test_unreadable.log", "4444");
    rotation.loadHistory(3, slot);
    ASSERT_EQ(slot.history.count(), 3u);
    EXPECT_EQ(slot.history.oldest().time, clock.fromLocal({2026, 1, 8, 8, 0, 0}));
    EXPECT_EQ(slot.history.newest().time, clock.fromLocal({2026, 3, 8, 8, 0, 0}));
    EXPECT_EQ(slot.history.writeLength(), 6u);
    EXPECT_EQ(screen.plain(), "curVer:[0,] lstVer:[0,]idx:3 historyLog size:3 historyWrite:6 byte");
}

TEST_F(RotationTest, WithZipTheNewestLogIsPackedWhenTheHistoryIsRead) {
    slot.isZip = true;
    files.put("logs/sonvia_Test_2026-03-07-08-00-00.log", compressible(5000));
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", compressible(5000));
    rotation.loadHistory(0, slot);
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-07-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-08-08-00-00.log.zip"}));
    EXPECT_EQ(slot.history.writeLength(), files.totalSize(".log"));
}

TEST_F(RotationTest, HalfAnArchiveLeftByAKilledProcessIsRemovedAndItsLogKept) {
    for (const bool zip : {false, true}) {
        slot.isZip = zip;
        files.put("logs/sonvia_Test_2026-03-07-08-00-00.log", "the log");
        files.put("logs/sonvia_Test_2026-03-07-08-00-00.log.zip", "PK half");
        files.put("logs/sonvia_Test_2026-03-08-08-00-00.log.zip", "PK whole");
        rotation.loadHistory(0, slot);
        EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-07-08-00-00.log",
                                                    "logs/sonvia_Test_2026-03-08-08-00-00.log.zip"}));
        EXPECT_EQ(slot.history.count(), 2u);
        EXPECT_EQ(slot.history.writeLength(), 15u);
    }
}

TEST_F(RotationTest, OpeningAFileLooksAtNoOldOnes) {
    const auto sizesRead = [&](int oldFiles) {
        slot.history.clear();
        slot.newestIsUncounted = false;
        slot.totalSizeMb = kNoLimit;
        for (int i = 0; i < oldFiles; ++i) {
            slot.history.append("logs/old" + std::to_string(i) + ".log", 0);
        }
        slot.file.close();
        clock.advance(10);
        const std::uint64_t before = files.sizeReads();
        EXPECT_TRUE(line());
        return files.sizeReads() - before;
    };
    EXPECT_EQ(sizesRead(5), sizesRead(490));
}

TEST_F(RotationTest, AYearOfLoggingStaysWithinEveryLimit) {
    // Days of different length and noise, the clock put back and forth, files of 1 MB, 5 MB in all, two days kept.
    slot.reserveDelType = kReserveBySizeOrTime;
    slot.reserveSeconds = 172800;
    slot.limitSizeMb = 1;
    slot.totalSizeMb = 5;
    slot.monthdir = true;
    clock.setLocal({2026, 1, 1, 0, 0, 0});
    std::set<std::string> daysSeen;
    std::uint32_t noise = 1;
    for (int hour = 0; hour < 365 * 24; ++hour) {
        noise = noise * 1664525u + 1013904223u;
        clock.advance(hour % 700 == 699 ? -7200 : 3600);
        ASSERT_TRUE(line(10000 + (noise >> 8) % (hour % 31 == 0 ? 900000u : 30000u)));
        ASSERT_LE(files.totalSize(".log"), 6 * kMb) << "hour " << hour;
        ASSERT_LE(slot.history.count(), 501u);
        ASSERT_GE(slot.history.writeLength() + slot.file.length(), files.totalSize(".log"));
        const std::string& path = slot.history.newest().path;
        daysSeen.insert(path.substr(path.find("2026-") == std::string::npos ? 0 : path.rfind("2026-"), 10));
        ASSERT_TRUE(slot.file.isOpen());
    }
    EXPECT_GE(daysSeen.size(), 360u);
    for (const std::string& path : logs()) {
        const auto time = timeInName(path, clock);
        ASSERT_TRUE(time.has_value());
        EXPECT_GE(*time, clock.now().seconds - 4 * 86400) << path;
    }
}

TEST_F(RotationTest, AYearOfSmallFilesKeepsFiveHundred) {
    slot.totalSizeMb = kNoLimit;
    for (int opened = 0; opened < 3 * 365; ++opened) {
        clock.advance(86400);
        ASSERT_TRUE(line(10));
        ASSERT_LE(logs().size(), 502u);
    }
    EXPECT_EQ(slot.history.count(), 501u);
    EXPECT_EQ(logs().size(), 501u);
}
