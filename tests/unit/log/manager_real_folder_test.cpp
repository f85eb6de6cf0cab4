#include "log/log_folder.h"
#include "platform/file_system.h"
#include "support/log/log_fixture.h"
#include "support/log/test_folder.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using namespace support;

namespace {

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// An engine on the real files, in a folder whose name is given.
void logsInto(const std::string& folder) {
    using namespace orvel::log4z;
    RecordingConsole console;
    LogerManager manager({platform::systemClock(), platform::systemFiles(), console, "host.exe"});
    const int id = manager.createLogger("Real");
    ASSERT_TRUE(manager.setLoggerPath(id, folder.c_str()));
    manager.setLoggerDisplay(id, false);
    manager.setLoggerMonthdir(id, true);
    manager.setLoggerVersion(id, "2.1");
    ASSERT_TRUE(manager.start());
    LogRecord* record = manager.makeRecord(id, kLevelError);
    ASSERT_TRUE(manager.pushLog(record, nullptr, 0));
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    const auto found = listLogs(platform::systemFiles(), folder, "sonvia_Real", nullptr);
    ASSERT_EQ(found.size(), 1u) << folder;
    const std::string text = readAll(found[0].path); // while the engine has it open
    ASSERT_GT(text.size(), 40u);
    EXPECT_EQ(text.substr(text.size() - 10), "] ERROR \r\n");
    manager.stop();
    EXPECT_EQ(readVersionFile(platform::systemFiles(), folder + "/"), "2.1");
}

} // namespace

TEST(RealFolder, ANameWithSpacesWorks) {
    TestFolder folder;
    logsInto(folder.path("my log folder"));
}

TEST(RealFolder, ALogThatIsMovedAwayIsFollowedByAnother) {
    using namespace orvel::log4z;
    TestFolder folder;
    RecordingConsole console;
    LogerManager manager({platform::systemClock(), platform::systemFiles(), console, "host.exe"});
    const int id = manager.createLogger("Real");
    ASSERT_TRUE(manager.setLoggerPath(id, folder.path("logs").c_str()));
    manager.setLoggerDisplay(id, false);
    ASSERT_TRUE(manager.start());
    const auto write = [&] {
        ASSERT_TRUE(manager.pushLog(manager.makeRecord(id, kLevelError), nullptr, 0));
        ASSERT_TRUE(manager.flush(kTimeoutMs));
    };
    write();
    const auto found = listLogs(platform::systemFiles(), folder.path("logs"), "sonvia_Real", nullptr);
    ASSERT_EQ(found.size(), 1u);
    std::filesystem::rename(found[0].path, folder.path("elsewhere.txt")); // as a recycle bin does
    write();
    EXPECT_EQ(listLogs(platform::systemFiles(), folder.path("logs"), "sonvia_Real", nullptr).size(), 1u);
    manager.stop();
}

TEST(RealFolder, ANameOutsideAsciiThatTheCodePageHoldsWorks) {
    TestFolder folder;
#ifdef _WIN32
    logsInto(folder.path("Gr\xfc\xdf"
                         "e")); // Windows' western code page, the prefix's own
#else
    logsInto(folder.path("Gr\xc3\xbc\xc3\x9f"
                         "e"));
#endif
}

#ifdef _WIN32
// Elsewhere a backslash is part of a name.
TEST(RealFolder, BothSeparatorsMayBeMixed) {
    TestFolder folder;
    logsInto(folder.path() + "\\PCAudiodll");
    logsInto(folder.path() + "\\other/");
}
#endif
