// How a closed file becomes an archive.

#include "support/log/rolling_file_fixture.h"

using namespace support;
using namespace orvel::log4z;

namespace {

using Packing = RollingFileTest;

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

TEST_F(Packing, AClosedFileIsPackedAndItsArchiveIsInTheHistory) {
    slot.settings.isZip = true;
    slot.settings.limitSizeMb = 1;
    const std::string text = compressible(kMb + 1);
    ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
    slot.file.write(text.data(), text.size());
    clock.advance(1);
    ASSERT_TRUE(line());
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-09-08-00-00.log.zip",
                                                "logs/sonvia_Test_2026-03-09-08-00-01.log"}));
    EXPECT_EQ(slot.file.history().oldest().path, "logs/sonvia_Test_2026-03-09-08-00-00.log.zip");
    EXPECT_EQ(slot.file.history().writeLength(), files.content(logs()[0]).size());
    const std::string printed = screen.plain();
    EXPECT_EQ(printed.find("logLen:1048577 zipLen:" + std::to_string(slot.file.history().writeLength()) +
                           " ratio0."),
              0u)
        << printed;
    EXPECT_NE(
        printed.find(" historyWriteLen:0 back second name:logs/sonvia_Test_2026-03-09-08-00-00.log.zip "),
        std::string::npos)
        << printed;
}

TEST_F(Packing, TheTimeItTookIsShownInSecondsAndMilliseconds) {
    slot.settings.isZip = true;
    ASSERT_TRUE(line());
    clock.advance(86400);
    files.onEach(MemoryFiles::Call::WriteThrough, [this] {
        clock.advanceSteady(2034);
        clock.advance(-7); // somebody sets the clock meanwhile
    });
    screen.forget();
    ASSERT_TRUE(line());
    EXPECT_NE(screen.plain().find(" usedTime:2.034S "), std::string::npos) << screen.plain();
}

TEST_F(Packing, AnArchiveThatIsNotSmallerIsRemovedAndTheLogKept) {
    slot.settings.isZip = true;
    ASSERT_TRUE(line(10));
    clock.advance(86400);
    ASSERT_TRUE(line(10));
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-00.log"));
    EXPECT_EQ(files.pathsWith(".zip").size(), 0u);
    EXPECT_EQ(slot.file.history().writeLength(), 10u);
}

TEST_F(Packing, AnEmptyLogHasTheRatioOne) {
    slot.settings.isZip = true;
    ASSERT_TRUE(line(0));
    clock.advance(86400);
    ASSERT_TRUE(line());
    EXPECT_NE(screen.plain().find("logLen:0 "), std::string::npos);
    EXPECT_NE(screen.plain().find(" ratio1.00 "), std::string::npos);
}

TEST_F(Packing, AnArchiveThatCannotBeFinishedLosesNoLog) {
    slot.settings.isZip = true;
    slot.settings.limitSizeMb = 1;
    const std::string text = compressible(kMb + 1);
    for (int failing = 1; failing < 8; ++failing) {
        ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
        slot.file.write(text.data(), text.size());
        slot.file.flush();
        const std::string log = slot.file.history().newest().path;
        files.failNth(MemoryFiles::Call::Write, failing);
        const int before = files.calls(MemoryFiles::Call::Write);
        clock.advance(86400);
        ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
        const bool failed = files.calls(MemoryFiles::Call::Write) - before >= failing;
        files.failNothing();
        EXPECT_EQ(files.exists(log), failed) << "write " << failing;
        EXPECT_EQ(files.exists(log + ".zip"), !failed) << "write " << failing;
        EXPECT_TRUE(!failed || files.content(log) == text);
    }
}

TEST_F(Packing, ALogWhoseClosingReportsAnErrorIsNotPacked) {
    slot.settings.isZip = true;
    const std::string text = compressible(20000);
    ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
    slot.file.write(text.data(), text.size());
    files.failNth(MemoryFiles::Call::Close, 1);
    clock.advance(86400);
    ASSERT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-00.log"), text);
    EXPECT_EQ(files.pathsWith(".zip").size(), 0u);
}

TEST_F(Packing, ALogIsKeptUntilItsArchiveIsOnTheMedium) {
    slot.settings.isZip = true;
    const std::string text = compressible(20000);
    for (const auto failing : {MemoryFiles::Call::WriteThrough, MemoryFiles::Call::Close}) {
        ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
        slot.file.write(text.data(), text.size());
        slot.file.close();
        const std::string log = slot.file.history().newest().path;
        files.failNth(failing, 1);
        clock.advance(86400);
        ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
        EXPECT_EQ(files.content(log), text);
        EXPECT_FALSE(files.exists(log + ".zip"));
    }
}

TEST_F(Packing, ALogThatAnotherProcessWritesIsLeftAlone) {
    slot.settings.isZip = true;
    slot.settings.reserveDelType = kReserveByTime;
    slot.settings.reserveSeconds = 1;
    const std::string theirs = "logs/sonvia_Test_2026-03-08-08-00-00.log";
    files.put(theirs, compressible(20000));
    auto writer = files.open(theirs, platform::OpenMode::Append);
    slot.file.loadHistory(0);
    EXPECT_EQ(logs(), std::vector<std::string>{theirs}) << "not packed";
    EXPECT_EQ(slot.file.history().writeLength(), 20000u);
    ASSERT_TRUE(line());
    EXPECT_TRUE(files.exists(theirs)) << "not deleted for its age";
    slot.settings.version = "2";
    slot.file.loadHistory(0);
    EXPECT_TRUE(files.exists(theirs)) << "nor for another version";
    writer.reset();
    slot.settings.version = "3";
    slot.file.loadHistory(0);
    EXPECT_FALSE(files.exists(theirs));
}

TEST_F(Packing, ALogThatCannotBeReadToItsEndIsNotPacked) {
    slot.settings.isZip = true;
    const std::string text = compressible(200000);
    ASSERT_TRUE(slot.file.openFor(clock.now().seconds));
    slot.file.write(text.data(), text.size());
    files.limitReads(100000);
    clock.advance(86400);
    ASSERT_TRUE(line());
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-00.log"), text);
    EXPECT_EQ(files.pathsWith(".zip").size(), 0u);
}

TEST_F(Packing, WithZipTheNewestLogIsPackedWhenTheHistoryIsRead) {
    slot.settings.isZip = true;
    files.put("logs/sonvia_Test_2026-03-07-08-00-00.log", compressible(5000));
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", compressible(5000));
    slot.file.loadHistory(0);
    EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-07-08-00-00.log",
                                                "logs/sonvia_Test_2026-03-08-08-00-00.log.zip"}));
    EXPECT_EQ(slot.file.history().writeLength(), files.totalSize(".log"));
}

TEST_F(Packing, HalfAnArchiveLeftByAKilledProcessIsRemovedAndItsLogKept) {
    for (const bool zip : {false, true}) {
        slot.settings.isZip = zip;
        files.put("logs/sonvia_Test_2026-03-07-08-00-00.log", "the log");
        files.put("logs/sonvia_Test_2026-03-07-08-00-00.log.zip", "PK half");
        files.put("logs/sonvia_Test_2026-03-08-08-00-00.log.zip", "PK whole");
        slot.file.loadHistory(0);
        EXPECT_EQ(logs(), (std::vector<std::string>{"logs/sonvia_Test_2026-03-07-08-00-00.log",
                                                    "logs/sonvia_Test_2026-03-08-08-00-00.log.zip"}));
        EXPECT_EQ(slot.file.history().count(), 2u);
        EXPECT_EQ(slot.file.history().writeLength(), 15u);
    }
}
