#include "log/log_folder.h"

#include "support/log/fake_clock.h"
#include "support/log/memory_files.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace support;
using namespace orvel::log4z;

namespace {

std::vector<std::string> namesIn(MemoryFiles& files, const std::string& folder, const std::string& part,
                                 platform::Clock* clock) {
    std::vector<std::string> names;
    for (const FoundLog& log : listLogs(files, folder, part, clock)) {
        names.push_back(log.path.substr(log.path.find_last_of("/\\") + 1));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(LogFolder, FindsLogsAndArchivesByNamePartAndEndingOneLevelDeep) {
    MemoryFiles files;
    files.put("logs/sonvia_a_2026-01-01-00-00-00.log", "");
    files.put("logs/sonvia_version", "2.1");
    files.put("logs/other.log", "");
    files.put("logs/2026_02/sonvia_a_2026-02-01-00-00-00.log.zip", "");
    files.put("logs/2026_02/deeper/sonvia_a_2026-02-02-00-00-00.log", "");
    const std::vector<std::string> expected = {"sonvia_a_2026-01-01-00-00-00.log",
                                               "sonvia_a_2026-02-01-00-00-00.log.zip"};
    EXPECT_EQ(namesIn(files, "logs/", "sonvia", nullptr), expected);
    EXPECT_EQ(namesIn(files, "logs", "sonvia_a", nullptr), expected);
}

TEST(LogFolder, AFileWithoutAReadableTimeIsLeftOutOnlyWhenTimesAreWanted) {
    MemoryFiles files;
    FakeClock clock;
    files.put("logs/sonvia_a_copy.log", "");
    EXPECT_EQ(listLogs(files, "logs/", "sonvia_a", nullptr).size(), 1u);
    EXPECT_TRUE(listLogs(files, "logs/", "sonvia_a", &clock).empty());
}

TEST(LogFolder, AMissingFolderHoldsNothing) {
    MemoryFiles files;
    EXPECT_TRUE(listLogs(files, "nowhere/", "sonvia", nullptr).empty());
    EXPECT_EQ(readVersionFile(files, "nowhere/"), "");
}

TEST(LogFolder, TheVersionFileKeeps254BytesWithoutTrailingSpaces) {
    MemoryFiles files;
    files.put("logs/sonvia_version", "2.1.2110122 \r\n\t");
    EXPECT_EQ(readVersionFile(files, "logs/"), "2.1.2110122");
    files.put("logs/sonvia_version", std::string(300, 'v'));
    EXPECT_EQ(readVersionFile(files, "logs/"), std::string(254, 'v'));
    EXPECT_EQ(storedVersion(std::string(300, 'v')), std::string(254, 'v'));
    EXPECT_EQ(storedVersion("  \n"), "");
}
