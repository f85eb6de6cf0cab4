// What a process that was killed while packing leaves.

#include "log/archive.h"
#include "support/effort.h"
#include "support/log/line_account.h"
#include "support/log/log_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

class TornArchive : public LogEngine {
protected:
    bool isTorn(const std::string& content) {
        files.put("a.zip", content);
        return isTornArchive(files, "a.zip");
    }
};

constexpr char kLog[] = "logs/sonvia_Test_2026-03-07-08-00-00.log";

std::string oldText() {
    std::string text;
    for (int line = 0; line < 40; ++line) {
        text += "03-07 08:00:00.000 [host] [1234] INFO  tag: #number " + std::to_string(line) + " whole\r\n";
    }
    return text;
}

std::string archiveOf(const std::string& text) {
    MemoryFiles files;
    files.put(kLog, text);
    EXPECT_TRUE(writeArchive(files, kLog, "logs/a.zip", 1700000000));
    return files.content("logs/a.zip");
}

/// The first lengths of an archive, then those in steps, then the last.
bool isTried(std::size_t length, std::size_t whole) {
    return longForm() || length < 30 || length + 30 > whole || length % 7 == 0;
}

} // namespace

TEST_F(TornArchive, ATruncatedArchiveNextToItsLogIsRemovedAndTheLogKept) {
    const std::string text = oldText();
    const std::string archive = archiveOf(text);
    long long tried = 0;
    for (std::size_t length = 0; length < archive.size(); ++length) {
        if (!isTried(length, archive.size())) {
            continue;
        }
        for (const bool zip : {false, true}) {
            MemoryFiles disk;
            LogerManager engine({clock, disk, console, "host"});
            disk.put(kLog, text);
            disk.put(std::string(kLog) + ".zip", archive.substr(0, length));
            const int id = engine.createLogger("Test");
            engine.setLoggerPath(id, "logs");
            engine.setLoggerZip(id, zip);
            ASSERT_TRUE(engine.start());
            engine.stop();
            const bool packed = disk.exists(std::string(kLog) + ".zip");
            EXPECT_EQ(packed, zip) << "of " << length << " bytes";
            EXPECT_EQ(packed ? unpackedText(disk.content(std::string(kLog) + ".zip")) : disk.content(kLog),
                      text);
            ++tried;
        }
    }
    support::tried("log: archives torn at any byte", tried, "archives");
}

TEST_F(TornArchive, AWholeArchiveNextToALogOfItsNameIsKept) {
    const std::string archive = archiveOf("03-07 08:00:00.000 [host] [1234] INFO  tag: earlier lines\r\n");
    for (const bool zip : {false, true}) {
        MemoryFiles disk;
        LogerManager engine({clock, disk, console, "host"});
        disk.put(kLog, oldText());
        disk.put(std::string(kLog) + ".zip", archive);
        const int id = engine.createLogger("Test");
        engine.setLoggerPath(id, "logs");
        engine.setLoggerZip(id, zip);
        ASSERT_TRUE(engine.start());
        engine.stop();
        EXPECT_EQ(disk.content(std::string(kLog) + ".zip"), archive);
        EXPECT_EQ(disk.content(kLog), oldText());
    }
}

TEST_F(TornArchive, ATornArchiveWithoutItsLogIsAnOldFileLikeAnyOther) {
    files.put(std::string(kLog) + ".zip", "");
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log.zip", "PK");
    const int id = makeQuietLogger();
    manager.setLoggerZip(id, true);
    ASSERT_TRUE(manager.start());
    EXPECT_TRUE(pushNumbered(manager, id, 1));
    manager.stop();
    EXPECT_EQ(manager.slot(id).file.history().count(), 3u);
    EXPECT_EQ(files.pathsWith(".zip").size(), 2u);
}

TEST_F(TornArchive, AWholeArchiveIsNotTakenForATornOneWhateverFollowsOrPrecedesIt) {
    const std::string archive = archiveOf(oldText());
    EXPECT_FALSE(isTorn(archive));
    EXPECT_FALSE(isTorn(archiveOf(std::string(300000, 'x') + oldText())));
    EXPECT_TRUE(isTorn(archive + "x"));
    EXPECT_TRUE(isTorn(std::string(archive.size(), '\0')));
    EXPECT_TRUE(isTorn(""));
}

TEST_F(TornArchive, AnArchiveThatCannotBeLookedAtIsNotTakenForATornOne) {
    const std::string half = archiveOf(oldText()).substr(0, 100);
    EXPECT_TRUE(isTorn(half));
    files.failNth(MemoryFiles::Call::Open, 1);
    EXPECT_FALSE(isTorn(half));
    files.failNth(MemoryFiles::Call::Size, 1);
    EXPECT_FALSE(isTorn(half));
    files.limitReads(50);
    EXPECT_FALSE(isTorn(half));
    EXPECT_FALSE(isTornArchive(files, "missing.zip"));
}

TEST_F(TornArchive, ATornArchiveThatCannotBeRemovedCountsAsAFile) {
    files.put(kLog, "the log");
    files.put(std::string(kLog) + ".zip", "PK");
    files.failNth(MemoryFiles::Call::Remove, 1, false, MemoryFiles::Kind::Refused);
    const int id = makeQuietLogger();
    ASSERT_TRUE(manager.start());
    EXPECT_TRUE(pushNumbered(manager, id, 1));
    manager.stop();
    EXPECT_EQ(manager.slot(id).file.history().count(), 3u);
}

TEST_F(TornArchive, AnArchiveOfAnyLengthIsFoundWhole) {
    std::mt19937 random(20260311);
    std::string noise;
    while (noise.size() < 9000) {
        noise += static_cast<char>(random());
    }
    constexpr std::size_t kPiece = 4096; // is read at once
    int tried = 0;
    for (const std::size_t pieces : {1U, 2U}) {
        // What does not pack makes the archive grow with each byte.
        const std::size_t added =
            archiveOf(noise.substr(0, pieces * kPiece - 300)).size() - (pieces * kPiece - 300);
        for (std::size_t past = 0; past < 30; ++past) {
            const std::string archive = archiveOf(noise.substr(0, pieces * kPiece + past - added));
            EXPECT_EQ(archive.size(), pieces * kPiece + past);
            EXPECT_FALSE(isTorn(archive)) << archive.size() << " bytes";
            EXPECT_TRUE(isTorn(archive.substr(0, archive.size() - 1))) << archive.size() << " bytes";
            ++tried;
        }
    }
    support::tried("log: whole archives around the lengths of what is read at once", tried, "archives");
}
