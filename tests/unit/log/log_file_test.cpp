#include "log/log_file.h"

#include "support/log/memory_files.h"

#include <gtest/gtest.h>

#include <string>

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
