// When a new file begins, and how it is named.

#include "support/log/rolling_file_fixture.h"

using namespace support;
using namespace orvel::log4z;

TEST_F(RollingFileTest, TheFolderIsMadeAndTheFileNamedAfterTheFirstLine) {
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-00.log"});
    EXPECT_EQ(slot.file.history().count(), 1u);
    EXPECT_EQ(slot.file.history().writeLength(), 0u) << "counted when it is closed";
}

TEST_F(RollingFileTest, AFileTakesLinesUntilItIsOverItsLimit) {
    slot.settings.limitSizeMb = 1;
    EXPECT_TRUE(line(kMb));
    clock.advance(1);
    EXPECT_TRUE(line(1)); // exactly at the limit is not over it
    EXPECT_EQ(logs().size(), 1u);
    clock.advance(1);
    EXPECT_TRUE(line(1));
    ASSERT_EQ(logs().size(), 2u);
    EXPECT_EQ(files.content(logs()[0]).size(), kMb + 1);
    EXPECT_EQ(slot.file.history().writeLength(), kMb + 1);
}

TEST_F(RollingFileTest, WithoutALimitAFileStaysBelowFourGigabytesForCompatibility) {
    slot.settings.limitSizeMb = kNoLimit;
    slot.settings.totalSizeMb = kNoLimit;
    constexpr std::uint64_t kLimit = 4293918720;
    files.claimSize(kLimit - 100);
    EXPECT_TRUE(line(100));
    clock.advance(10);
    EXPECT_TRUE(line(1));
    EXPECT_EQ(logs().size(), 1u);
    clock.advance(10);
    EXPECT_TRUE(line(1));
    EXPECT_EQ(logs().size(), 2u);
}

TEST_F(RollingFileTest, ALineAfterLocalMidnightStartsANewFileEvenWhenTheOldOneIsSmall) {
    clock.setLocal({2026, 2, 28, 23, 59, 59}, 999);
    EXPECT_TRUE(line(1));
    clock.setLocal({2026, 3, 1, 0, 0, 0});
    EXPECT_TRUE(line(1));
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-02-28-23-59-59.log",
                                                "logs/sonvia_Test_2026-03-01-00-00-00.log"}));
}

TEST_F(RollingFileTest, ALineOfAnEarlierDayStartsANewFile) {
    EXPECT_TRUE(line());
    clock.advance(-86400);
    EXPECT_TRUE(line());
    clock.advance(-3600);
    EXPECT_TRUE(line()) << "the same day";
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-08-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-09-08-00-00.log"}));
}

TEST_F(RollingFileTest, ADayIsEightySixThousandFourHundredSecondsAlsoWhenTheClockIsPutBack) {
    // 2026-11-01 lasts 25 hours: its last hour has a file of its own, however many lines come in it.
    zone = newYork;
    clock.setLocal({2026, 11, 1, 0, 0, 0});
    EXPECT_TRUE(line());
    clock.advance(86399);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs().size(), 1u);
    clock.advance(1);
    for (int second = 0; second < 3600; ++second) {
        EXPECT_TRUE(line());
        clock.advance(1);
    }
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-11-01-00-00-00.log",
                                                "logs/sonvia_Test_2026-11-01-23-00-00.log",
                                                "logs/sonvia_Test_2026-11-02-00-00-00.log"}));
}

TEST_F(RollingFileTest, ADayOfTwentyThreeHoursLastsUntilOneOClockOfTheNext) {
    zone = newYork;
    clock.setLocal({2026, 3, 8, 0, 0, 0});
    EXPECT_TRUE(line());
    clock.advance(86399);
    ASSERT_EQ(clock.toLocal(clock.now().seconds).day, 9) << "0:59:59 of the next day";
    EXPECT_TRUE(line());
    EXPECT_EQ(logs().size(), 1u);
    clock.advance(1);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-08-00-00-00.log",
                                                "logs/sonvia_Test_2026-03-09-01-00-00.log"}));
}

TEST_F(RollingFileTest, TheFileOfALastHourTakesTheLinesOfAClockThatIsPutBackInIt) {
    zone = newYork;
    clock.setLocal({2026, 11, 1, 23, 30, 0});
    EXPECT_TRUE(line());
    clock.advance(-3600);
    EXPECT_TRUE(line()) << "the same day";
    clock.advance(3600);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-11-01-23-30-00.log"});
}

TEST_F(RollingFileTest, MonthFoldersFollowTheLocalTimeOfTheLine) {
    slot.settings.monthdir = true;
    clock.setLocal({2026, 1, 31, 23, 59, 59});
    EXPECT_TRUE(line());
    clock.advance(1);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/2026_01/sonvia_Test_2026-01-31-23-59-59.log",
                                                "logs/2026_02/sonvia_Test_2026-02-01-00-00-00.log"}));
}

TEST_F(RollingFileTest, AUsedNameAddsASecondAndIsReportedFromTheSecondTryOn) {
    files.put("logs/sonvia_Test_2026-03-09-08-00-00.log", "old");
    files.put("logs/sonvia_Test_2026-03-09-08-00-01.log", ""); // an empty one is taken over
    EXPECT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-01.log").size(), 100u);
    EXPECT_EQ(screen.plain(), "tryCnt:2 buf:logs/sonvia_Test_2026-03-09-08-00-01.log");
}

TEST_F(RollingFileTest, AddedSecondsCarryOverMinuteHourAndYear) {
    clock.setLocal({2026, 12, 31, 23, 59, 59});
    files.put("logs/sonvia_Test_2026-12-31-23-59-59.log", "old");
    EXPECT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2027-01-01-00-00-00.log"));
}

TEST_F(RollingFileTest, WithZipTheNameOfAnArchiveIsUsedToo) {
    slot.settings.isZip = true;
    files.put("logs/sonvia_Test_2026-03-09-08-00-00.log.zip", "old");
    EXPECT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-01.log"));
}

TEST_F(RollingFileTest, AfterFiveUsedNamesTheFifthIsAppendedTo) {
    for (int i = 0; i < 5; ++i) {
        files.put("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(i) + ".log", "old");
    }
    EXPECT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-04.log").size(), 103u);
    EXPECT_EQ(slot.file.length(), 103u) << "the length begins with what was there";
    EXPECT_EQ(logs().size(), 5u);
}

TEST_F(RollingFileTest, AFullFileIsNotOpenedAgainForEveryLineOfASecondWhoseNamesAreUsed) {
    slot.settings.limitSizeMb = 1;
    slot.settings.totalSizeMb = kNoLimit;
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

TEST_F(RollingFileTest, AFailedOpeningIsFramedOnceAndSwitchesFileOutputOff) {
    ASSERT_TRUE(line());
    files.failNth(MemoryFiles::Call::Open, 1);
    clock.advance(86400);
    EXPECT_FALSE(line());
    EXPECT_TRUE(slot.file.hasGivenUp());
    ASSERT_EQ(screen.coloured().size(), 3u);
    EXPECT_EQ(screen.coloured()[0].text, "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n");
    EXPECT_EQ(screen.coloured()[1].text,
              "can not open log file logs/sonvia_Test_2026-03-10-08-00-00.log. \r\n");
    EXPECT_EQ(screen.coloured()[2].text, "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n");
    EXPECT_EQ(screen.coloured()[1].attribute, 5u);
    slot.apply(kChangeOutFile, 1, {});
    EXPECT_TRUE(line()) << "set again, it writes again";
}

TEST_F(RollingFileTest, ADeletedFolderIsMadeAnewAtTheNextOpening) {
    ASSERT_TRUE(line());
    files.removeFolder("logs");
    clock.advance(86400);
    EXPECT_TRUE(line());
    EXPECT_EQ(logs(), std::vector<std::string>{"logs/sonvia_Test_2026-03-10-08-00-00.log"});
}
