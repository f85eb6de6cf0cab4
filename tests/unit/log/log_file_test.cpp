#include "log/log_file.h"

#include "support/log/memory_files.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;
using namespace orvel::log4z;

TEST(LogFile, LinesThatAFullBufferCannotHandOnAreCounted) {
    MemoryFiles files;
    LogFile file;
    ASSERT_TRUE(files.createFolders("logs"));
    ASSERT_TRUE(file.open(files, "logs/a.log"));
    files.failNth(MemoryFiles::Call::Write, 1, false, MemoryFiles::Kind::Refused);
    const std::string line(8000, 'x');
    std::uint64_t given = 0;
    bool taken = true;
    while (taken && given < 1000) {
        ++given;
        taken = file.write(line.data(), line.size());
    }
    EXPECT_FALSE(taken);
    EXPECT_FALSE(file.isOpen());
    EXPECT_GT(given, 1u);
    EXPECT_EQ(file.linesLost(), given);
}

namespace {

/// Lines of that many bytes, each with its number at its front.
void writeNumbered(LogFile& file, int first, int end, std::size_t size) {
    for (int number = first; number < end; ++number) {
        std::string line = std::to_string(number) + " ";
        line.resize(size - 1, 'x');
        line += '\n';
        EXPECT_TRUE(file.write(line.data(), line.size()));
    }
}

} // namespace

TEST(LogFile, AFileThatIsDeletedBetweenTwoWriteOutsIsMadeAnewForTheNext) {
    MemoryFiles files;
    LogFile file;
    ASSERT_TRUE(files.createFolders("logs"));
    ASSERT_TRUE(file.open(files, "logs/a.log"));
    writeNumbered(file, 0, 10, 1000);
    ASSERT_TRUE(file.flush());
    files.removeFolder("logs");
    writeNumbered(file, 10, 400, 1000); // three times what the buffer holds, and nobody asks for a flush
    ASSERT_TRUE(file.flush());
    const std::string text = files.content("logs/a.log");
    EXPECT_EQ(text.size(), 390u * 1000);
    EXPECT_EQ(text.substr(0, 3), "10 ") << "what was buffered at that time is not lost";
    EXPECT_EQ(file.length(), text.size());
    EXPECT_EQ(file.linesLost(), 0u);
}

TEST(LogFile, WhenADeletedFileCannotBeMadeAnewTheLinesOfItsBufferAreCounted) {
    MemoryFiles files;
    LogFile file;
    ASSERT_TRUE(files.createFolders("logs"));
    ASSERT_TRUE(file.open(files, "logs/a.log"));
    files.remove("logs/a.log");
    files.failNth(MemoryFiles::Call::Open, 1);
    writeNumbered(file, 0, 7, 100);
    EXPECT_FALSE(file.flush());
    EXPECT_EQ(file.linesLost(), 7u);
    EXPECT_FALSE(file.isOpen());
}

TEST(LogFile, IsCleanUntilAWriteOrItsClosingFails) {
    using Call = MemoryFiles::Call;
    for (const Call failing : {Call::Write, Call::Close}) {
        MemoryFiles files;
        LogFile file;
        ASSERT_TRUE(files.createFolders("logs"));
        ASSERT_TRUE(file.open(files, "logs/a.log"));
        file.close();
        EXPECT_TRUE(file.isClean());
        ASSERT_TRUE(file.open(files, "logs/b.log"));
        files.failNth(failing, 1);
        file.write("line", 4);
        file.close();
        EXPECT_FALSE(file.isClean());
        ASSERT_TRUE(file.open(files, "logs/c.log"));
        file.close();
        EXPECT_TRUE(file.isClean()) << "another file";
    }
}
