// What is found at start, and what is deleted when.

#include "support/log/rolling_file_fixture.h"

#include "log/log_names.h"

#include <set>

using namespace support;
using namespace orvel::log4z;

namespace {

using RetentionTest = RollingFileTest;

} // namespace

TEST_F(RetentionTest, DeletionStartsOnceTheHistoryHoldsThreeMegabytes) {
    // 2 MB each, 5 MB in all: two closed files are 4 MB, so the oldest goes before the third is written.
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(line(2 * kMb + 1));
        clock.advance(1);
    }
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-01.log",
                                                "logs/sonvia_Test_2026-03-09-08-00-02.log"}));
    EXPECT_EQ(screen.plain(), "historyWriteLen:4194306 historySizeMb:4 setLimitsizeMb:2 setTotalsizeMb:5");
    EXPECT_EQ(slot.file.history().writeLength(), 2 * kMb + 1);
}

TEST_F(RetentionTest, SizeAndTimeShowsItsNumbersWheneverTheSizeTestHolds) {
    slot.settings.reserveDelType = kReserveBySizeAndTime;
    slot.settings.reserveSeconds = 100;
    files.put("logs/sonvia_Test_2026-03-09-07-59-00.log", std::string(3 * kMb, 'o'));
    slot.file.loadHistory(0);
    screen.forget();
    EXPECT_TRUE(line()); // too large, but 60 s old
    EXPECT_EQ(screen.plain(), "historyWriteLen:3145728 historySizeMb:3 setLimitsizeMb:2 setTotalsizeMb:5");
    EXPECT_EQ(logs().size(), 2u);
    screen.forget();
    slot.file.close();
    clock.advance(50);
    EXPECT_TRUE(line()); // too large and too old
    EXPECT_EQ(screen.plain(), "historyWriteLen:3145828 historySizeMb:3 setLimitsizeMb:2 setTotalsizeMb:5");
    EXPECT_EQ(logs().size(), 2u) << "the old one went for the new";
}

TEST_F(RetentionTest, TheFiveHundredAndFirstFileGoesWithoutTheNumbersOfTheSizeTest) {
    loadOldFiles(501, std::string(kMb, 'o'));
    slot.settings.limitSizeMb = 2;
    slot.settings.totalSizeMb = 502; // 2 + 500 once the first is gone: the size test holds for one more
    EXPECT_TRUE(line());
    EXPECT_EQ(screen.plain(),
              "historyWriteLen:524288000 historySizeMb:500 setLimitsizeMb:2 setTotalsizeMb:502");
}

TEST_F(RetentionTest, AFailedDeletionIsIgnored) {
    files.failNth(MemoryFiles::Call::Remove, 1);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(line(2 * kMb + 1));
        clock.advance(1);
    }
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-00.log")) << "could not be deleted";
    EXPECT_FALSE(files.exists("logs/sonvia_Test_2026-03-09-08-00-01.log"));
    EXPECT_EQ(slot.file.history().count(), 2u);
}

TEST_F(RetentionTest, TheOldestFilesGoWhenTheirTimeIsOver) {
    slot.settings.reserveDelType = kReserveByTime;
    slot.settings.reserveSeconds = 172800;
    for (int day = 0; day < 5; ++day) {
        EXPECT_TRUE(line());
        clock.advance(86400);
    }
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-11-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-12-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-13-08-00-00.log"}));
}

TEST_F(RetentionTest, AgesAreReckonedByTheTimeOfTheWritingAndNotByThatOfTheLine) {
    slot.settings.reserveDelType = kReserveByTime;
    slot.settings.reserveSeconds = 100;
    const std::int64_t start = clock.now().seconds;
    clock.advance(50);
    ASSERT_TRUE(slot.file.openFor(start)) << "a line that has waited for 50 s";
    EXPECT_EQ(slot.file.history().newest().time, start + 50) << "an entry carries the time of its making";
    slot.file.write("line", 4);
    slot.file.close();
    clock.advance(100);
    ASSERT_TRUE(slot.file.openFor(start + 1));
    slot.file.write("line", 4);
    slot.file.close();
    EXPECT_EQ(logs().size(), 2u) << "exactly 100 s old";
    clock.advance(1);
    ASSERT_TRUE(slot.file.openFor(start + 2));
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-01.log",
                                                "logs/sonvia_Test_2026-03-09-08-00-02.log"}));
}

TEST_F(RetentionTest, AFileClosedByAChangedSettingIsStillCounted) {
    ASSERT_TRUE(line(kMb));
    slot.file.close();
    clock.advance(1);
    ASSERT_TRUE(line(10));
    EXPECT_EQ(slot.file.history().writeLength(), kMb);
    EXPECT_EQ(slot.file.history().count(), 2u);
}

TEST_F(RetentionTest, FilesDeletedByTheUserAreNotMissedForEver) {
    slot.settings.limitSizeMb = 1;
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

TEST_F(RetentionTest, AFileThatTheUserDeletedAndTheClockBringsBackIsCountedOnce) {
    slot.settings.totalSizeMb = 8;
    ASSERT_TRUE(line(2 * kMb + 1));
    clock.advance(1);
    ASSERT_TRUE(line(2 * kMb + 1));
    files.remove(logs()[0]);
    clock.advance(-1);
    slot.file.close();
    ASSERT_TRUE(line(10));
    EXPECT_EQ(slot.file.history().count(), 2u);
    EXPECT_EQ(slot.file.history().writeLength(), 2 * kMb + 1);
    EXPECT_EQ(logs().size(), 2u);
}

TEST_F(RetentionTest, TheFileBeingWrittenIsNeverDeleted) {
    slot.settings.limitSizeMb = 5; // alone as large as all files may be: every old file goes
    clock.setLocal({2026, 3, 9, 8, 0, 0});
    for (int i = 0; i < 5; ++i) {
        files.put("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(i) + ".log", "old");
    }
    slot.file.loadHistory(0);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-04.log"});
    EXPECT_EQ(slot.file.history().count(), 1u);
}

TEST_F(RetentionTest, AChangedVersionClearsTheFolderBeforeLoggingResumes) {
    files.put("logs/sonvia_version", "1.0");
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", "old");
    files.put("logs/sonvia_Other.log", "old");
    files.put("logs/2026_02/sonvia_Test_2026-02-08-08-00-00.log.zip", "old");
    files.put("logs/host.log", "not ours");
    files.put("logs/sonvia_notes.txt", "no log");
    slot.settings.version = "2.1.2110122";
    slot.file.loadHistory(0);
    EXPECT_EQ(files.paths(),
              (std::vector<std::string>{"logs/host.log", "logs/sonvia_notes.txt", "logs/sonvia_version"}));
    EXPECT_EQ(files.content("logs/sonvia_version"), "2.1.2110122");
    EXPECT_EQ(screen.plain(), "curVer:[11,2.1.2110122] lstVer:[3,1.0]clear history num:3");
    EXPECT_TRUE(slot.file.history().empty());
}

TEST_F(RetentionTest, TheSecondStartOfAVersionKeepsTheLogsOfTheFirst) {
    slot.settings.version = "2.1.2110122";
    slot.file.loadHistory(0); // the folder does not exist yet
    ASSERT_TRUE(line());
    slot.file.close();
    LoggerSlot next{{clock, files, console}};
    next.settings.enable = true;
    next.settings.name = slot.settings.name;
    next.settings.path = slot.settings.path;
    next.settings.version = slot.settings.version;
    screen.forget();
    next.file.loadHistory(0);
    EXPECT_EQ(logs().size(), 1u);
    EXPECT_EQ(screen.plain(), "curVer:[11,2.1.2110122] lstVer:[11,2.1.2110122]"
                              "idx:0 historyLog size:1 historyWrite:100 byte");
}

TEST_F(RetentionTest, AVersionLongerThanItsFileClearsTheFolderOnlyOnce) {
    slot.settings.version = std::string(400, 'v');
    slot.file.loadHistory(0);
    ASSERT_TRUE(line());
    slot.file.close();
    slot.file.loadHistory(0);
    EXPECT_EQ(logs().size(), 1u);
}

TEST_F(RetentionTest, TheHistoryIsSortedByTheTimesInTheNames) {
    files.put("logs/2026_02/sonvia_Test_2026-02-08-08-00-00.log.zip", "1");
    files.put("logs/sonvia_Test_2026-01-08-08-00-00.log", "22");
    files.put("logs/2026_03/sonvia_Test_2026-03-08-08-00-00.log", "333");
    files.put("logs/sonvia_Test_unreadable.log", "4444");
    slot.file.loadHistory(3);
    ASSERT_EQ(slot.file.history().count(), 3u);
    EXPECT_EQ(slot.file.history().oldest().time, clock.fromLocal({2026, 1, 8, 8, 0, 0}));
    EXPECT_EQ(slot.file.history().newest().time, clock.fromLocal({2026, 3, 8, 8, 0, 0}));
    EXPECT_EQ(slot.file.history().writeLength(), 6u);
    EXPECT_EQ(screen.plain(), "curVer:[0,] lstVer:[0,]idx:3 historyLog size:3 historyWrite:6 byte");
}

TEST_F(RetentionTest, OpeningAFileLooksAtNoOldOnes) {
    const auto sizesRead = [&](int oldFiles) {
        slot.settings.totalSizeMb = kNoLimit;
        files.removeFolder("logs");
        loadOldFiles(oldFiles, "old");
        clock.advance(10);
        const std::uint64_t before = files.sizeReads();
        EXPECT_TRUE(line());
        return files.sizeReads() - before;
    };
    EXPECT_EQ(sizesRead(5), sizesRead(490));
}

TEST_F(RetentionTest, AYearOfLoggingStaysWithinEveryLimit) {
    // Days of different length and noise, the clock put back and forth, files of 1 MB, 5 MB in all, two days kept.
    zone = newYork;
    slot.settings.reserveDelType = kReserveBySizeOrTime;
    slot.settings.reserveSeconds = 172800;
    slot.settings.limitSizeMb = 1;
    slot.settings.totalSizeMb = 5;
    slot.settings.monthdir = true;
    clock.setLocal({2026, 1, 1, 0, 0, 0});
    std::set<std::string> daysSeen;
    std::uint32_t noise = 1;
    for (int hour = 0; hour < 365 * 24; ++hour) {
        noise = noise * 1664525u + 1013904223u;
        clock.advance(hour % 700 == 699 ? -7200 : 3600);
        ASSERT_TRUE(line(10000 + (noise >> 8) % (hour % 31 == 0 ? 900000u : 30000u)));
        ASSERT_LE(files.totalSize(".log"), 6 * kMb) << "hour " << hour;
        ASSERT_LE(slot.file.history().count(), 501u);
        ASSERT_GE(slot.file.history().writeLength() + slot.file.length(), files.totalSize(".log"));
        const std::string& path = slot.file.history().newest().path;
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

TEST_F(RetentionTest, ADiskThatStaysFullDisplacesNoOlderLog) {
    for (int day = 1; day <= 8; ++day) {
        files.put("logs/sonvia_Test_2026-03-0" + std::to_string(day) + "-08-00-00.log", "old");
    }
    slot.file.loadHistory(0);
    for (const bool isZip : {false, true}) {
        slot.settings.isZip = isZip;
        files.failNth(MemoryFiles::Call::Write, 1, true, MemoryFiles::Kind::Refused);
        for (int second = 0; second < 600; ++second) {
            EXPECT_TRUE(line());
            clock.advance(1);
        }
        EXPECT_EQ(logs().size(), isZip ? 10u : 9u) << "the empty ones are removed again";
        files.failNothing();
        EXPECT_TRUE(line());
        clock.advance(86400);
    }
    EXPECT_EQ(logs().size(), 10u);
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-01-08-00-00.log"));
    EXPECT_EQ(slot.file.history().count(), 10u);
}

TEST_F(RetentionTest, AYearOfSmallFilesKeepsFiveHundred) {
    slot.settings.totalSizeMb = kNoLimit;
    for (int opened = 0; opened < 3 * 365; ++opened) {
        clock.advance(86400);
        ASSERT_TRUE(line(10));
        ASSERT_LE(logs().size(), 502u);
    }
    EXPECT_EQ(slot.file.history().count(), 501u);
    EXPECT_EQ(logs().size(), 501u);
}
