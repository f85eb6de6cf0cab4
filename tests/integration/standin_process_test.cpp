// The stand-in service by itself: it must end, and say why, whatever its scenario does.
#include <filesystem>

#include <gtest/gtest.h>

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

TEST_F(StandinProcess, OverallGuardEndsItWhateverHappens) {
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

} // namespace
