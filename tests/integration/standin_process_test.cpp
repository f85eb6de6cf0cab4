// The stand-in service by itself: it must end, and say why, whatever its scenario does.
// Words close to right ones. cspell:ignore comand hapy
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <uv.h>

#include "support/process.h"
#include "support/standin.h"

namespace {

class StandinProcess : public testing::Test {
protected:
    void SetUp() override { support::enterTestFolder(); }

    int run(const std::string& scenario) {
        standin.play(scenario);
        return support::runProgram(support::programFolder() / "QuPCAudio.exe", {"one two", "3"});
    }

    // As a person starts it, with nothing in the environment.
    int runAlone(const std::vector<std::string>& arguments) {
        for (const char* name : {"SCENARIO", "RECORD", "GUARD", "SHOW_SECRETS"}) {
            uv_os_unsetenv((std::string("SONVIA_STANDIN_") + name).c_str());
        }
        return support::runProgram(support::programFolder() / "QuPCAudio.exe", arguments);
    }

    static std::string textOf(const char* file) {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    static void write(const char* file, const std::string& text) { std::ofstream(file) << text; }

    std::string exitReason() { return standin.recorded("exit").at(0).at("reason").text(); }

    support::Standin standin;
};

TEST_F(StandinProcess, EndsWithTheScenariosExitCode) {
    EXPECT_EQ(run("wait 10\nexit 17\n"), 17);
    EXPECT_EQ(exitReason(), "scenario");
    EXPECT_EQ(standin.recorded("listen").size(), 1U);
}

TEST_F(StandinProcess, RecordsWhatItWasStartedWith) {
    EXPECT_EQ(run("no-pipe\nexit\n"), 0);
    const support::Json::List argv = standin.recorded("start").at(0).at("argv").list();
    ASSERT_EQ(argv.size(), 3U);
    EXPECT_EQ(argv[1].text(), "one two");
    EXPECT_EQ(argv[2].text(), "3");
    EXPECT_TRUE(standin.recorded("listen").empty());
}

TEST_F(StandinProcess, WaitThatLastsTooLongEndsItAndNamesTheLine) {
    EXPECT_EQ(run("\nwait connection guard 20\n"), 90);
    EXPECT_EQ(exitReason(), "guard of line 2");
}

TEST_F(StandinProcess, OverallTimeoutEndsItWhateverHappens) {
    EXPECT_EQ(run("guard 1\nrepeat forever\n wait 1\nend\n"), 89);
}

TEST_F(StandinProcess, ScenarioThatCannotBeReadEndsItAtOnce) {
    EXPECT_EQ(run("listen\nleap\n"), 91);
    const std::string reason = standin.recorded("scenario-error").at(0).at("reason").text();
    EXPECT_NE(reason.find("scenario.txt:2:1: expected a step, found \"leap\""), std::string::npos) << reason;
    EXPECT_TRUE(standin.recorded("listen").empty());
}

TEST_F(StandinProcess, CrashIsNoOrderlyExit) {
    const int code = run("crash\n");
    EXPECT_NE(code, 0);
    EXPECT_NE(code, -1000) << "it did not end by itself";
    EXPECT_EQ(standin.recorded("crash").size(), 1U);
    EXPECT_TRUE(standin.recorded("exit").empty());
}

TEST_F(StandinProcess, RepeatBlocksRunInsideEachOther) {
    EXPECT_EQ(run("no-pipe\nrepeat 2 as a\n repeat 3\n  note \"${a}${i}\"\n end\nend\nrepeat 0\n note "
                  "never\nend\nexit\n"),
              0);
    std::string notes;
    for (const support::Json& note : standin.recorded("note")) {
        notes += note.at("text").text() + " ";
    }
    EXPECT_EQ(notes, "00 01 02 10 11 12 ");
}

TEST_F(StandinProcess, HelpIsOnOneScreenAndNamesEveryVariable) {
    EXPECT_EQ(runAlone({"--help"}), 0);
    const std::string help = textOf("stdout.txt");
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 40);
    for (const char* name :
         {"SCENARIO", "RECORD", "RECORD_SENT", "SHOW", "SHOW_TO", "SHOW_SECRETS", "COLOR", "PIPE", "GUARD"}) {
        EXPECT_NE(help.find(std::string("SONVIA_STANDIN_") + name + "\n"), std::string::npos) << name;
    }
}

TEST_F(StandinProcess, FlagThatIsNotKnownIsAMistakeOfItsOwn) {
    EXPECT_EQ(runAlone({"--verify", "x"}), 92);
    EXPECT_NE(textOf("stderr.txt").find("--verify"), std::string::npos);
}

TEST_F(StandinProcess, CheckNamesThePlaceOfAMistakeAndPlaysNothing) {
    write("good.scenario", "no-pipe\nexit 3\n");
    EXPECT_EQ(runAlone({"--check", "good.scenario"}), 0);
    write("bad.scenario", "wait packet comand 34\n");
    EXPECT_EQ(runAlone({"--check", "bad.scenario"}), 91);
    const std::string said = textOf("stderr.txt");
    EXPECT_EQ(said.rfind("bad.scenario:1:13: expected ", 0), 0U) << said;
    EXPECT_NE(said.find("did you mean \"command\"?"), std::string::npos) << said;
    EXPECT_EQ(runAlone({"--check", "hapy"}), 91);
    EXPECT_NE(textOf("stderr.txt").find("did you mean \"happy\"?"), std::string::npos);
}

TEST_F(StandinProcess, ShowsEachStepWithItsLineAndInColourOnlyWhenAsked) {
    write("short.scenario", "no-pipe\nnote \"a line\"\nexit 7\n");
    EXPECT_EQ(runAlone({"--scenario", "short.scenario", "--show"}), 7);
    const std::string plain = textOf("stdout.txt");
    EXPECT_NE(plain.find("note: a line  (line 2)\n"), std::string::npos) << plain;
    EXPECT_EQ(plain.find('\x1b'), std::string::npos);
    EXPECT_EQ(runAlone({"--scenario", "short.scenario", "--show", "--color", "always"}), 7);
    EXPECT_NE(textOf("stdout.txt").find("\x1b["), std::string::npos);
    EXPECT_EQ(runAlone({"--scenario", "short.scenario", "--show-to", "shown.txt"}), 7);
    EXPECT_NE(textOf("shown.txt").find("note: a line  (line 2)\n"), std::string::npos);
}

} // namespace
