// Whole host processes: how they start, log, leave and come again.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"

namespace {

namespace fs = std::filesystem;

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

    // Messages of the host's log under that tag, as "function text": the line numbers are left out.
    static std::vector<std::string> logLines(const std::string& tag) {
        std::istringstream text(support::logText((fs::current_path() / "logs" / "host").string()));
        std::vector<std::string> messages;
        for (std::string line; std::getline(text, line);) {
            const std::size_t start = line.find(" " + tag + ": [");
            const std::size_t end = line.find(']', start);
            if (start == std::string::npos || end == std::string::npos) {
                continue;
            }
            const std::size_t name = start + tag.size() + 4;
            const std::size_t number = line.rfind(':', end);
            const std::size_t carriageReturn = line.find('\r', end);
            messages.push_back(line.substr(name, number - name) + " " +
                               line.substr(end + 1, carriageReturn - end - 1));
        }
        return messages;
    }

    // What the host printed, for a test that failed.
    static std::string output() {
        std::ifstream file("stdout.txt");
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static std::size_t countOf(const std::vector<std::string>& lines, const std::string& line) {
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    support::Standin standin;
    const std::string hostProgram = support::programFile("host_child");
};

constexpr const char* kOneEvent = "wait packet key KORUInfo\nnotify int buffering-start 1\n";

TEST_F(HostProcess, NoServiceBesideTheHostGivesNoHandleAndIsLoggedOnce) {
    const fs::path folder = fs::current_path() / "alone";
    fs::create_directories(folder);
    fs::copy_file(support::programFolder() / hostProgram, folder / hostProgram);
#ifdef _WIN32
    fs::copy_file(support::programFolder() / "SonviaPCAudioDll.dll", folder / "SonviaPCAudioDll.dll");
#endif
    EXPECT_EQ(run("no-service", "", folder), 0);
    EXPECT_TRUE(standin.recorded("start").empty());
    const std::vector<std::string> lines = logLines("SonviaPCAudioDll");
    EXPECT_EQ(countOf(lines, "initSonviaAudioService QuPCAudio.exe start failed!!!!"), 1U);
}

TEST_F(HostProcess, WholeLifeIsLoggedStepByStep) {
    ASSERT_EQ(run("whole-life", kOneEvent), 0);
    std::vector<std::string> lines = logLines("SonviaPCAudioDll");
    // These two come from the loop thread, at a moment of its own.
    lines.erase(std::remove(lines.begin(), lines.end(), "ThreadFun SonviaPCDll begin run"), lines.end());
    lines.erase(std::remove(lines.begin(), lines.end(), "ThreadFun SonviaPCDll will out run"), lines.end());
    lines.erase(
        std::remove_if(lines.begin(), lines.end(),
                       [](const std::string& line) { return line.find("OUVLoop") != std::string::npos; }),
        lines.end());
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "initSonviaAudioService initSonviaAudioService", "setParam koru setParam!",
                         "getState getState!", "getSourceName getSourceName!",
                         "setAccountID koru setAccountID!", "exitAudioProjection exitAudioProjection",
                         "uninitSonviaAudioService uninitSonviaAudioService",
                         "uninitSonviaAudioService send StopSonviaAudioService notify!",
                         "uninitSonviaAudioService stop loop!", "uninitSonviaAudioService exit thread!"}));

    const std::vector<std::string> session = logLines("Sonvia_PCAudioMessage");
    const std::vector<std::string> expected = {
        "QuPCAudioMessage::onConnect Connect successed, start recv.",
        "QuPCAudioMessage::_setKORUInfoNotify send notify koru info.",
        "QuPCAudioMessage::handleBufferStart kKORUSinkInfoBufferingStart.",
        "QuPCAudioMessage::setAccountID send notify accountid."};
    ASSERT_GE(session.size(), expected.size());
    EXPECT_EQ((std::vector<std::string>{session.begin(), session.begin() + 4}), expected);
}

TEST_F(HostProcess, HandleThatWasNeverConfiguredStopsNoThread) {
    EXPECT_EQ(run("never-configured", ""), 0);
    const std::vector<std::string> lines = logLines("SonviaPCAudioDll");
    EXPECT_EQ(countOf(lines, "uninitSonviaAudioService send StopSonviaAudioService notify!"), 1U);
    EXPECT_EQ(countOf(lines, "uninitSonviaAudioService stop loop!"), 1U);
    EXPECT_EQ(countOf(lines, "uninitSonviaAudioService exit thread!"), 0U);
    EXPECT_FALSE(standin.running());
}

TEST_F(HostProcess, ReleaseInsideACallbackEndsTheProcessAndSaysWhy) {
#ifdef _WIN32
    constexpr int kAborted = 3;
#else
    constexpr int kAborted = -SIGABRT;
#endif
    EXPECT_EQ(
        run("uninit-in-callback",
            std::string(kOneEvent) + "wait packet key exitAudioProjection\nnotify int buffering-end 1\n"),
        kAborted);
    EXPECT_EQ(countOf(logLines("SonviaPCAudioDll"), "uninitSonviaAudioService called inside a callback"), 1U);
}

TEST_F(HostProcess, ServiceThatIgnoresTheStopIsEndedAndThatIsLogged) {
    EXPECT_EQ(run("whole-life", kOneEvent + std::string("on-stop ignore\n")), 0);
    const std::vector<std::string> lines = logLines("SonviaPCAudioDll");
    EXPECT_EQ(countOf(lines, "uninitSonviaAudioService QuPCAudio exit timeout"), 1U);
    EXPECT_EQ(countOf(lines, "killExe kill QuPCAudio process"), 1U);
    EXPECT_FALSE(standin.running());
}

TEST_F(HostProcess, ServiceThatEndsInTimeIsNotEndedByName) {
    EXPECT_EQ(run("whole-life", kOneEvent), 0);
    const std::vector<std::string> lines = logLines("SonviaPCAudioDll");
    EXPECT_EQ(countOf(lines, "uninitSonviaAudioService QuPCAudio exit timeout"), 0U);
    EXPECT_EQ(countOf(lines, "killExe kill QuPCAudio process"), 0U);
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
