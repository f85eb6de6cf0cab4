// The taskkill of the tests' own: the library's forced end of the service is only as good as the program it
// runs.
#include <filesystem>

#include <gtest/gtest.h>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

// A process tree to end: a stand-in service under another name, with two children.
class Taskkill : public testing::Test {
protected:
    void SetUp() override {
        support::enterTestFolder();
        const fs::path programs = support::programFolder();
        fs::copy_file(programs / "QuPCAudio.exe", kVictim);
        fs::copy_file(programs / "standin_child.exe", "standin_child.exe");
    }

    void TearDown() override {
        support::killProcess(victim, kVictim);
        for (const std::int64_t child : children) {
            support::killProcess(child, "standin_child.exe");
        }
    }

    void startVictim() {
        standin.play("no-pipe\nchildren 2\nnote ready\n");
        victim = support::startProgram(fs::current_path() / kVictim);
        ASSERT_TRUE(standin.waitForNote("ready"));
        for (const support::Json& child : standin.recorded("child")) {
            children.push_back(child.at("pid").number());
        }
        ASSERT_EQ(runningChildren(), 2);
    }

    bool victimRuns() const { return support::processRuns(victim, kVictim); }

    int runningChildren() const {
        int running = 0;
        for (const std::int64_t child : children) {
            running += support::processRuns(child, "standin_child.exe") ? 1 : 0;
        }
        return running;
    }

    static int taskkill(const std::vector<std::string>& arguments) {
        return support::runProgram(support::programFolder() / "taskkill.exe", arguments);
    }

    static constexpr const char* kVictim = "standin_victim.exe";
    support::Standin standin;
    std::int64_t victim = 0;
    std::vector<std::int64_t> children;
};

TEST_F(Taskkill, EndsTheProcessAndItsChildren) {
    startVictim();
    EXPECT_EQ(taskkill({"/f", "/t", "/im", kVictim}), 0);
    EXPECT_FALSE(victimRuns());
    EXPECT_EQ(runningChildren(), 0);
}

TEST_F(Taskkill, LeavesTheChildrenWithoutTheTreeSwitch) {
    startVictim();
    EXPECT_EQ(taskkill({"/f", "/im", kVictim}), 0);
    EXPECT_FALSE(victimRuns());
    EXPECT_EQ(runningChildren(), 2);
}

TEST_F(Taskkill, SwitchesAndNamesComeInAnyOrderAndCase) {
    startVictim();
    EXPECT_EQ(taskkill({"-IM", "STANDIN_Victim.EXE", "/T", "-f"}), 0);
    EXPECT_FALSE(victimRuns());
    EXPECT_EQ(runningChildren(), 0);
}

TEST_F(Taskkill, EndsEveryProcessOfTheName) {
    startVictim();
    const std::int64_t second = support::startProgram(fs::current_path() / kVictim);
    ASSERT_TRUE(standin.waitForEvent("start", 2));
    EXPECT_EQ(taskkill({"/f", "/t", "/im", kVictim}), 0);
    EXPECT_FALSE(victimRuns());
    EXPECT_FALSE(support::processRuns(second, kVictim));
}

TEST_F(Taskkill, NameThatNobodyHasGivesItsOwnExitCode) {
    EXPECT_EQ(taskkill({"/f", "/t", "/im", "standin_nobody.exe"}), 128);
}

TEST_F(Taskkill, DoesNotEndItself) {
    EXPECT_EQ(taskkill({"/f", "/t", "/im", "taskkill.exe"}), 128);
}

TEST_F(Taskkill, UnknownSwitchesAreRefused) {
    EXPECT_EQ(taskkill({"/f", "/x"}), 1);
    EXPECT_EQ(taskkill({"/f", "/t"}), 1);
}

} // namespace
