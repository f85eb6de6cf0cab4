// Whole host processes: how they start, log, leave and come again.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"

namespace {

namespace fs = std::filesystem;

using support::LoggedLine;

constexpr const char* kTag = "SonviaPCAudioDll";
constexpr const char* kSessionTag = "Sonvia_PCAudioMessage";

LoggedLine uninitLine(const std::string& text, const std::string& level = "INFO") {
    return {level, kTag, "uninitSonviaAudioService", text};
}

const LoggedLine kKill = {"INFO", kTag, "killExe", "kill QuPCAudio process"};

class HostProcess : public testing::Test {
protected:
    void SetUp() override { support::enterTestFolder(); }

    int run(const std::string& behaviour, const std::string& scenario, const fs::path& folder) {
        standin.play(scenario);
        return support::runProgram(folder / hostProgram, {behaviour});
    }

    int run(const std::string& behaviour, const std::string& scenario) {
        return run(behaviour, scenario, support::programFolder());
    }

    static std::vector<LoggedLine> logLines(const std::string& tag = {}) {
        return support::loggedLines((fs::current_path() / "logs" / "host").string(), tag);
    }

    // All lines but two that come at a moment of their own: that the loop has ended, and that the service's end of the
    // pipe has gone, if that was still seen.
    static std::vector<LoggedLine> logOfALife() {
        std::vector<LoggedLine> lines = logLines();
        EXPECT_EQ(std::erase(lines, LoggedLine{"WARN", kTag, "ThreadFun", "SonviaPCDll will out run"}), 1U);
        std::erase_if(lines, [](const LoggedLine& line) {
            return line.level == "WARN" && line.tag == kSessionTag &&
                   line.function == "QuPCAudioMessage::onError" && line.text.rfind("nErrorCode:-", 0) == 0;
        });
        return lines;
    }

    // A folder with the host and the DLL that it loads, and no service.
    static fs::path folderWithoutService() {
        const fs::path folder = fs::current_path() / "alone";
        fs::create_directories(folder);
        copyTo(folder, support::programFile("host_child"));
#ifdef _WIN32
        copyTo(folder, "SonviaPCAudioDll.dll");
#endif
        return folder;
    }

    static void copyTo(const fs::path& folder, const std::string& program, const std::string& name = {}) {
        fs::copy_file(support::programFolder() / program, folder / (name.empty() ? program : name));
    }

    static std::string contentOf(const char* name) {
        std::ifstream file(name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // What the host printed, for a test that failed.
    static std::string output() {
        return contentOf("stdout.txt");
    }

    static std::size_t countOf(const std::vector<LoggedLine>& lines, const LoggedLine& line) {
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    support::Standin standin;
    const std::string hostProgram = support::programFile("host_child");
};

constexpr const char* kOneEvent = "wait packet key KORUInfo\nnotify int buffering-start 1\n";

TEST_F(HostProcess, NoServiceNextToTheHostGivesNoHandleAndIsLoggedAtOnce) {
    EXPECT_EQ(run("no-service", "", folderWithoutService()), 0);
    EXPECT_TRUE(standin.recorded("start").empty());
    const std::vector<LoggedLine> lines = logLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], (LoggedLine{"INFO", kTag, "initSonviaAudioService", "initSonviaAudioService"}));
    EXPECT_EQ(lines[1],
              (LoggedLine{"ERROR", kTag, "initSonviaAudioService", "QuPCAudio.exe start failed!!!!"}));
    EXPECT_EQ(lines[2], (LoggedLine{"ERROR", kTag, "initSonviaAudioService", "the system's error is 2"}));
}

#ifdef _WIN32
TEST_F(HostProcess, ServiceIsLookedForNextToTheHostAndNotNextToTheLibrary) {
    const fs::path folder = folderWithoutService();
    fs::rename(folder / "SonviaPCAudioDll.dll", "SonviaPCAudioDll.dll"); // the current folder is searched too
    copyTo(folder, "QuPCAudio.exe");
    EXPECT_EQ(run("never-configured", "", folder), 0);
    ASSERT_EQ(standin.recorded("start").size(), 1U);
    const std::string program = standin.recorded("start").at(0).at("argv").list().at(0).text();
    EXPECT_EQ(fs::path(program), folder / "QuPCAudio.exe");
}

// The command processor looks into the current folder first.
TEST_F(HostProcess, OldServicesAreEndedByForceAndWithoutAWindow) {
    copyTo(fs::current_path(), "start_recorder.exe", "taskkill.exe");
    EXPECT_EQ(run("no-service", "", folderWithoutService()), 0);
    const std::string record = contentOf("taskkill.exe.txt");
    EXPECT_NE(record.find(" /f /t /im QuPCAudio.exe\n"), std::string::npos) << record;
    EXPECT_NE(record.find("parent hidden: yes"), std::string::npos) << record;
}
#endif

// What a life logs, whole, but for the last lines of the loop thread: see logOfALife.
const std::vector<LoggedLine> kWholeLife = {
    {"INFO", kTag, "initSonviaAudioService", "initSonviaAudioService"},
    {"DEBUG", "Sonvia_Default", "OUVLoop::OUVLoop", "OUVLoop"},
    {"DEBUG", kTag, "initSonviaAudioService", "OUVLoop New"},
    {"DEBUG", kTag, "setParam", "koru setParam!"},
    {"WARN", kTag, "ThreadFun", "SonviaPCDll begin run"},
    {"INFO", kSessionTag, "QuPCAudioMessage::onConnect", "Connect successed, start recv."},
    {"INFO", kSessionTag, "QuPCAudioMessage::_setKORUInfoNotify", "send notify koru info."},
    {"DEBUG", kSessionTag, "QuPCAudioMessage::handleBufferStart", "kKORUSinkInfoBufferingStart."},
    {"DEBUG", kTag, "getState", "getState!"},
    {"DEBUG", kTag, "getSourceName", "getSourceName!"},
    {"DEBUG", kTag, "setAccountID", "koru setAccountID!"},
    {"INFO", kSessionTag, "QuPCAudioMessage::setAccountID", "send notify accountid."},
    {"INFO", kTag, "exitAudioProjection", "exitAudioProjection"},
    {"INFO", kTag, "uninitSonviaAudioService", "uninitSonviaAudioService"},
    {"INFO", kTag, "uninitSonviaAudioService", "send StopSonviaAudioService notify!"},
    {"INFO", kTag, "uninitSonviaAudioService", "stop loop!"},
    {"INFO", kTag, "uninitSonviaAudioService", "exit thread!"},
    {"DEBUG", "Sonvia_Default", "OUVLoop::~OUVLoop", "~OUVLoop"}};

TEST_F(HostProcess, WholeLifeIsLoggedStepByStep) {
    ASSERT_EQ(run("whole-life", kOneEvent), 0);
    EXPECT_EQ(logOfALife(), kWholeLife);
}

TEST_F(HostProcess, OnlyLinesFromTheHostsLevelOnAreLogged) {
    const std::pair<const char*, std::vector<std::string>> levels[] = {
        {"whole-life-at-info", {"INFO", "WARN"}}, {"whole-life-at-warning", {"WARN"}}};
    for (const auto& [behaviour, logged] : levels) {
        fs::remove_all("logs");
        ASSERT_EQ(run(behaviour, kOneEvent), 0);
        std::vector<LoggedLine> expected = kWholeLife;
        std::erase_if(expected, [&levelsLogged = logged](const LoggedLine& line) {
            return std::find(levelsLogged.begin(), levelsLogged.end(), line.level) == levelsLogged.end();
        });
        EXPECT_EQ(logOfALife(), expected) << behaviour;
    }
}

// The host calls getState in each callback, so that its line follows what was logged before the callback.
TEST_F(HostProcess, EventsAreLoggedBeforeTheyAreReportedToTheHost) {
    ASSERT_EQ(run("call-in-callbacks", "wait file open\nlisten\nwait packet key KORUInfo\n"
                                       "notify int buffering-start 1\nnotify int buffering-end 1\n"
                                       "notify int first-audiopcm 1\nnotify int change-mode 7\nexit\n"),
              0);
    std::string steps;
    for (const LoggedLine& line : logLines()) {
        if (line.function == "getState") {
            steps += "callback\n";
        } else if (line.tag == kSessionTag) {
            steps +=
                line.level + " " + line.text.substr(0, line.text.find('-')) + "\n"; // without libuv's number
        }
    }
    EXPECT_EQ(steps, "ERROR connect failed \ncallback\n"
                     "INFO Connect successed, start recv.\nINFO send notify koru info.\n"
                     "DEBUG kKORUSinkInfoBufferingStart.\ncallback\n"
                     "DEBUG kKORUSinkInfoBufferingEnd.\ncallback\n"
                     "DEBUG kKORUSinkInfoFirstAudioPCM.\ncallback\n"
                     "DEBUG change mode to 7.\ncallback\n"
                     "WARN nErrorCode:\nERROR kSinkErrorConnection,errorCode: \ncallback\n");
}

// The host itself opens the pipe, as soon as it sees in the log that the service has been started: without the pause
// at the end of init the first connect is always earlier. The program starts over until it succeeds, for a busy machine
// may take longer than the pause.
TEST_F(HostProcess, PipeThatOpensAMomentAfterTheServicesStartIsFoundByTheFirstConnect) {
    EXPECT_EQ(run("connect-at-once", "no-pipe\nexit\n"), 0);
}

TEST_F(HostProcess, HandleThatWasNeverConfiguredStopsNoThread) {
    EXPECT_EQ(run("never-configured", ""), 0);
    const std::vector<LoggedLine> lines = logLines();
    EXPECT_EQ(countOf(lines, uninitLine("send StopSonviaAudioService notify!")), 1U);
    EXPECT_EQ(countOf(lines, uninitLine("stop loop!")), 1U);
    EXPECT_EQ(countOf(lines, uninitLine("exit thread!")), 0U);
    EXPECT_FALSE(standin.running());
}

#ifdef _WIN32
constexpr int kAborted = 3;
#else
constexpr int kAborted = -SIGABRT;
#endif

TEST_F(HostProcess, CallbackThatThrowsEndsTheProcessAndItsExceptionIsLogged) {
    EXPECT_EQ(
        run("throw-in-callback",
            std::string(kOneEvent) + "wait packet key exitAudioProjection\nnotify int buffering-end 1\n"),
        kAborted);
    const std::string log = support::logText((fs::current_path() / "logs" / "host").string());
    EXPECT_NE(log.find("the host's callback threw: the host's own trouble"), std::string::npos);
}

TEST_F(HostProcess, ReleaseInsideACallbackEndsTheProcessAndLogsWhy) {
    EXPECT_EQ(
        run("uninit-in-callback",
            std::string(kOneEvent) + "wait packet key exitAudioProjection\nnotify int buffering-end 1\n"),
        kAborted);
    EXPECT_EQ(countOf(logLines(), uninitLine("called inside a callback", "ERROR")), 1U);
}

TEST_F(HostProcess, ServiceThatIgnoresTheStopIsEndedAndThatIsLogged) {
    EXPECT_EQ(run("whole-life", kOneEvent + std::string("on-stop ignore\n")), 0);
    const std::vector<LoggedLine> lines = logLines();
    EXPECT_EQ(countOf(lines, uninitLine("QuPCAudio exit timeout")), 1U);
    EXPECT_EQ(countOf(lines, kKill), 1U);
    EXPECT_FALSE(standin.running());
}

TEST_F(HostProcess, ServiceThatEndsInTimeIsNotEndedByName) {
    EXPECT_EQ(run("whole-life", kOneEvent), 0);
    const std::vector<LoggedLine> lines = logLines();
    EXPECT_EQ(countOf(lines, uninitLine("QuPCAudio exit timeout")), 0U);
    EXPECT_EQ(countOf(lines, kKill), 0U);
}

TEST_F(HostProcess, UninitAtOnceAfterSetParamEnds) {
    EXPECT_EQ(run("uninit-at-once", ""), 0);
    EXPECT_FALSE(standin.running());
}

TEST_F(HostProcess, UninitAtOnceEndsWhenTheServiceHasAlreadyEnded) {
    EXPECT_EQ(run("uninit-at-once", "no-pipe\nexit\n"), 0);
}

TEST_F(HostProcess, HostMayLeaveWithoutUninit) {
    EXPECT_EQ(run("exit-without-uninit", kOneEvent), 0);
    EXPECT_TRUE(standin.waitForEvent("disconnect"));
}

TEST_F(HostProcess, HostMayLeaveWhileEventsPourIn) {
    EXPECT_EQ(
        run("exit-in-flood", kOneEvent + std::string("repeat forever\n notify int buffering-end 1\nend\n")),
        0);
}

TEST_F(HostProcess, HostMayLeaveWithoutSetParam) {
    EXPECT_EQ(run("exit-without-set-param", ""), 0);
}

TEST_F(HostProcess, LibraryMayBeLoadedAndFreedUnused) {
    EXPECT_EQ(run("load-only", ""), 0);
}

TEST_F(HostProcess, LibraryMayBeFreedLoadedAgainAndStartedOver) {
    EXPECT_EQ(run("reload", kOneEvent), 0);
    EXPECT_EQ(standin.recorded("start").size(), 3U);
    EXPECT_EQ(standin.packets(support::kStop).size(), 3U);
}

TEST_F(HostProcess, SettingsOfTheProcessAreLeftAsTheyWereBeforeTheLibraryWasLoaded) {
    EXPECT_EQ(run("settings", kOneEvent), 0) << output();
}

// Each in a process of its own: the first folder of a process is its log's.
TEST_F(HostProcess, LogFolderOfAnyKindLetsTheHostLive) {
    std::ofstream("a-file") << "no folder";
    const std::string folders[] = {"",
                                   " ",
                                   "relative",
                                   "no\\such/folder\\",
                                   "%s%n%d%1000000d",
                                   "\"quoted\" & more | <or> less",
                                   "nul:",
                                   "a-file",
                                   "a-file/below",
                                   "\xFF\xFE\x80 no text in any code page",
                                   std::string(255, 'f'),
                                   std::string(256, 'f'),
                                   std::string(100000, 'f')};
    int tried = 0;
    for (const std::string& folder : folders) {
        std::ofstream("folder.txt", std::ios::binary) << folder;
        EXPECT_EQ(run("whole-life-with-folder", kOneEvent), 0) << folder.substr(0, 300);
        EXPECT_EQ(standin.packets(support::kStop).size(), 1U);
        ++tried;
    }
    support::tried("bad arguments: folders of the log itself", tried, "processes");
}

} // namespace
