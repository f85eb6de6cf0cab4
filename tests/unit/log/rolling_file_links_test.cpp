// What others may have put into the log's folder.

#include "support/log/fake_clock.h"
#include "support/log/recording_console.h"
#include "support/log/rolling_file_fixture.h"
#include "support/log/test_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

#ifdef _WIN32
/// Has a program of Wine's host do what Wine cannot; elsewhere nothing happens.
void askTheHost(const std::string& command, const std::string& path, const std::string& secondPath = "") {
    const auto quoted = [](const std::string& name) { // without its drive, which is the host's root
        return name.empty() ? "" : " \"" + std::filesystem::absolute(name).generic_string().substr(2) + "\"";
    };
    std::system(("start /wait /unix " + command + quoted(path) + quoted(secondPath) + " >NUL 2>&1").c_str());
}
#endif

/// Makes links. Wine makes none itself, but shows those of its host to folders.
class Links {
public:
    Links() = default;

    ~Links() {
#ifdef _WIN32
        for (const std::string& link : mHostsLinks) {
            askTheHost("/bin/rm -f", link); // Wine would remove what it leads to
        }
#endif
    }

    Links(const Links&) = delete;
    Links& operator=(const Links&) = delete;

    bool make(const std::string& target, const std::string& link) {
        std::error_code failed;
        const std::filesystem::path absolute = std::filesystem::absolute(target);
#ifdef _WIN32
        if (std::filesystem::is_directory(absolute)) {
            std::system(("mklink /J \"" + link + "\" \"" + absolute.string() + "\" >NUL 2>&1").c_str());
        } else {
            std::filesystem::create_symlink(absolute, link, failed);
        }
        if (!std::filesystem::exists(link)) {
            askTheHost("/bin/ln -s", target, link);
            mHostsLinks.push_back(link);
        }
#else
        std::filesystem::create_symlink(absolute, link, failed);
#endif
        return std::filesystem::exists(link);
    }

private:
    std::vector<std::string> mHostsLinks;
};

/// A logger on the system's files, and a folder next to it that is not the log's.
class LogLinks : public ::testing::Test {
protected:
    LogLinks() {
        clock.setLocal({2026, 3, 9, 8, 0, 0});
        std::filesystem::create_directories(folder.path("logs"));
        std::filesystem::create_directories(folder.path("outside"));
        slot.settings.enable = true;
        slot.settings.name = "sonvia_Test";
        slot.settings.path = folder.path("logs/");
        slot.settings.reserveDelType = kReserveByTime;
        slot.settings.reserveSeconds = 1;
    }

    /// Makes a file outside and returns its path.
    std::string outside(const std::string& name, const std::string& text) {
        std::ofstream(folder.path("outside/" + name), std::ios::binary) << text;
        return folder.path("outside/" + name);
    }

    static std::string read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    bool line() {
        if (!slot.file.openFor(clock.now().seconds)) {
            return false;
        }
        slot.file.write("line\r\n", 6);
        slot.file.close();
        return true;
    }

    TestFolder folder;
    Links links; // gone before the folder
    FakeClock clock;
    RecordingConsole screen;
    ConsoleEcho console{screen};
    LoggerSlot slot{{clock, platform::systemFiles(), console}};
};

constexpr char kOldName[] = "sonvia_Test_2026-02-01-00-00-00.log";

} // namespace

TEST_F(LogLinks, AFolderThatIsALinkIsNotSearchedForLogsToDeleteOrToPack) {
    const std::string theirs = outside(kOldName, std::string(5000, 'o'));
    if (!links.make(folder.path("outside"), folder.path("logs/2026_02"))) {
        GTEST_SKIP() << "no links here";
    }
    EXPECT_TRUE(platform::systemFiles().isLink(folder.path("logs/2026_02")));
    for (const char* version : {"", "2", "2"}) { // unchanged, changed, and once more
        slot.settings.version = version;
        slot.settings.isZip = true;
        slot.file.loadHistory(0);
        EXPECT_TRUE(slot.file.history().empty());
        EXPECT_EQ(read(theirs).size(), 5000u);
    }
    EXPECT_TRUE(line());
    EXPECT_FALSE(std::filesystem::exists(theirs + ".zip"));
}

TEST_F(LogLinks, AFolderThatBecomesALinkTakesNoFileAndLosesNone) {
    slot.settings.monthdir = true;
    clock.setLocal({2026, 2, 1, 0, 0, 0});
    ASSERT_TRUE(line());
    const std::string theirs = outside(kOldName, "not the log's");
    std::filesystem::remove_all(folder.path("logs/2026_02"));
    if (!links.make(folder.path("outside"), folder.path("logs/2026_02"))) {
        GTEST_SKIP() << "no links here";
    }
    clock.advance(86400);
    slot.settings.isZip = true;
    EXPECT_FALSE(line()) << "it would be written through the link";
    EXPECT_NE(screen.plain().find("log: no log is written, its folder is a link: "), std::string::npos);
    slot.settings.outfile = true;
    clock.setLocal({2026, 3, 1, 0, 0, 0});
    EXPECT_TRUE(line()) << "another month";
    EXPECT_EQ(read(theirs), "not the log's") << "the history's oldest has that path, and its time is over";
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path("outside"))) {
        ++count;
    }
    EXPECT_EQ(count, 1u);
}

TEST_F(LogLinks, ALogThatIsALinkIsNeitherListedNorWrittenThrough) {
    const std::string theirs = outside("theirs.txt", "");
    const std::string old = outside("old.txt", "old");
    if (!links.make(theirs, folder.path("logs/sonvia_Test_2026-03-09-08-00-00.log")) ||
        !links.make(old, folder.path(std::string("logs/") + kOldName))) {
        GTEST_SKIP() << "no links here";
    }
    if (!platform::systemFiles().isLink(folder.path("logs/sonvia_Test_2026-03-09-08-00-00.log"))) {
        GTEST_SKIP() << "Wine does not distinguish a link to a file from a file";
    }
    slot.file.loadHistory(0);
    EXPECT_TRUE(slot.file.history().empty());
    EXPECT_TRUE(line());
    EXPECT_EQ(read(theirs), "");
    EXPECT_EQ(read(folder.path("logs/sonvia_Test_2026-03-09-08-00-01.log")), "line\r\n") << "the next name";
    EXPECT_EQ(platform::systemFiles().open(folder.path("logs/sonvia_Test_2026-03-09-08-00-00.log"),
                                           platform::OpenMode::Append),
              nullptr);
    EXPECT_EQ(read(old), "old");
}

TEST_F(LogLinks, AVersionFileThatIsALinkIsReplaced) {
    const std::string theirs = outside("theirs.txt", "1");
    if (!links.make(theirs, folder.path("logs/sonvia_version"))) {
        GTEST_SKIP() << "no links here";
    }
    if (!platform::systemFiles().isLink(folder.path("logs/sonvia_version"))) {
        GTEST_SKIP() << "Wine does not distinguish a link to a file from a file";
    }
    slot.settings.version = "2";
    slot.file.loadHistory(0);
    EXPECT_EQ(read(theirs), "1");
    EXPECT_EQ(read(folder.path("logs/sonvia_version")), "2");
    EXPECT_FALSE(platform::systemFiles().isLink(folder.path("logs/sonvia_version")));
}

namespace {

using LogObstacles = RollingFileTest;

} // namespace

TEST_F(LogObstacles, AVersionThatCannotBeWrittenClearsNothing) {
    files.put("logs/sonvia_version/inside", "a folder of that name");
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", "old");
    slot.settings.version = "2";
    for (int start = 0; start < 3; ++start) {
        screen.forget();
        slot.file.loadHistory(0);
        EXPECT_EQ(slot.file.history().count(), static_cast<std::size_t>(1 + start));
        EXPECT_EQ(screen.plain().find("clear history"), std::string::npos);
        EXPECT_NE(screen.plain().find("curVer:[1,2] lstVer:[0,]idx:0 "), std::string::npos);
        ASSERT_TRUE(line());
        slot.file.close();
        clock.advance(60);
    }
}

TEST_F(LogObstacles, AVersionThatADiskTakesOnlyHalfClearsNothing) {
    files.put("logs/sonvia_Test_2026-03-08-08-00-00.log", "old");
    slot.settings.version = "2.1";
    files.failNth(MemoryFiles::Call::Write, 1);
    slot.file.loadHistory(0);
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-08-08-00-00.log"));
    EXPECT_EQ(slot.file.history().count(), 1u);
}

TEST_F(LogObstacles, NamesThatAreFoldersAreSkippedAndFiveOfThemAreReportedOnce) {
    const auto take = [&](int second) {
        files.createFolders("logs/sonvia_Test_2026-03-09-08-00-0" + std::to_string(second) + ".log");
    };
    take(0);
    take(1);
    ASSERT_TRUE(line());
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-08-00-02.log"));
    slot.file.close();
    take(3);
    take(4);
    files.remove("logs/sonvia_Test_2026-03-09-08-00-02.log");
    take(2);
    screen.forget();
    screen.setScreen(false);
    EXPECT_FALSE(line());
    EXPECT_NE(screen.plain().find("log: no log is written, no file of its name can be opened: "
                                  "logs/sonvia_Test_2026-03-09-08-00-04.log \r\n"),
              std::string::npos)
        << screen.plain();
    EXPECT_TRUE(slot.file.hasGivenUp());
}

TEST_F(LogObstacles, AFileInThePlaceOfTheMonthsFolderIsReported) {
    slot.settings.monthdir = true;
    files.put("logs/2026_03", "a file");
    screen.setScreen(false);
    EXPECT_FALSE(line());
    EXPECT_EQ(screen.plain(), "log: no log is written, its folder cannot be made: "
                              "logs/2026_03/sonvia_Test_2026-03-09-08-00-00.log \r\n");
}

TEST_F(LogObstacles, AFolderWhosePathIsTooLongIsReportedAndNoPartOfItMade) {
    slot.settings.path = std::string(200, 'l') + "/";
    slot.settings.monthdir = true;
    slot.settings.version = "2";
    files.setLongestPath(201 + std::string("2026_03/sonvia_Test_2026-03-09-08-00-00.log").size() - 1);
    slot.file.loadHistory(0);
    EXPECT_FALSE(line());
    EXPECT_TRUE(files.paths().empty());
    EXPECT_FALSE(files.isFolder(slot.settings.path));
    EXPECT_NE(screen.plain().find("log: no log is written, its path is too long: "), std::string::npos);
    slot.settings.path = std::string(199, 'l') + "/";
    slot.settings.outfile = true;
    slot.settings.isZip = true;
    EXPECT_FALSE(line()) << "there would be no room for an archive";
    slot.settings.isZip = false;
    slot.settings.outfile = true;
    EXPECT_TRUE(line());
}

#ifdef _WIN32
TEST(SystemFiles, APathOfTwoHundredFiftyNineCharactersIsNotTooLongAndALongerOneIs) {
    platform::FileSystem& files = platform::systemFiles();
    EXPECT_FALSE(files.isTooLong("C:\\" + std::string(256, 'l')));
    EXPECT_TRUE(files.isTooLong("C:\\" + std::string(257, 'l')));
    EXPECT_TRUE(files.isTooLong(std::string(257, 'l'))) << "with the current folder before it";
}
#endif
