#include "platform/process.h"

#include "support/process.h"
#include "support/standin.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using platform::Process;

constexpr const char* kProgram = "QuPCAudio.exe";
const std::vector<std::string> kArguments = {"the-logs", "2"};

class ProcessTest : public testing::Test {
protected:
    void SetUp() override {
        support::enterTestFolder();
        Process::endAll(kProgram);
    }

    void TearDown() override { Process::endAll(kProgram); }

    /// The stand-in service, once it plays `scenario`.
    std::unique_ptr<Process> start(const std::string& scenario) {
        standin.play(scenario);
        int systemError = 0;
        std::unique_ptr<Process> process = Process::start(kProgram, kArguments, systemError);
        EXPECT_NE(process, nullptr) << systemError;
        EXPECT_TRUE(standin.waitForEvent("start"));
        return process;
    }

    support::Standin standin;
};

TEST_F(ProcessTest, ProgramNextToTheHostGetsItsArguments) {
    const auto process = start("no-pipe\n");
    ASSERT_NE(process, nullptr);
    const support::Json::List argv = standin.recorded("start").front().at("argv").list();
    ASSERT_EQ(argv.size(), 3U);
    EXPECT_EQ(argv[1].text(), "the-logs");
    EXPECT_EQ(argv[2].text(), "2");
}

TEST_F(ProcessTest, WaitForARunningProcessEndsAtItsLimit) {
    const auto process = start("no-pipe\n");
    ASSERT_NE(process, nullptr);
    EXPECT_FALSE(process->waitForEnd(0ms));
    EXPECT_FALSE(process->waitForEnd(20ms));
    EXPECT_TRUE(standin.running());
}

TEST_F(ProcessTest, WaitForAProcessThatEndsSucceeds) {
    const auto process = start("no-pipe\nexit 3\n");
    ASSERT_NE(process, nullptr);
    EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
    EXPECT_TRUE(process->waitForEnd(0ms)) << "and again";
    EXPECT_FALSE(standin.running());
}

TEST_F(ProcessTest, EndAllEndsTheProcessAndItsChildren) {
    const auto process = start("no-pipe\nchildren 2\n");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(standin.waitForEvent("child", 2));
    const auto children = standin.recorded("child");
    for (const support::Json& child : children) {
        ASSERT_TRUE(support::processRuns(child.numberOf("pid"), "standin_child.exe"));
    }
    Process::endAll(kProgram);
    EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
    for (const support::Json& child : children) {
        const auto pid = child.numberOf("pid");
        EXPECT_TRUE(support::processEnds(pid, "standin_child.exe"));
    }
}

TEST_F(ProcessTest, EndAllEndsEveryProcessEvenOneWithoutAnOwner) {
    start("no-pipe\n").reset();
    const std::int64_t forgotten = standin.pid();
    int systemError = 0;
    const auto second = Process::start(kProgram, kArguments, systemError);
    ASSERT_NE(second, nullptr) << systemError;
    ASSERT_TRUE(standin.waitForEvent("start", 2));
    Process::endAll(kProgram);
    EXPECT_TRUE(second->waitForEnd(support::kProcessTimeout));
    EXPECT_TRUE(support::processEnds(forgotten, "QuPCAudio.exe"));
}

TEST_F(ProcessTest, EndAllWithNothingToEndReturns) {
    Process::endAll(kProgram);
    Process::endAll(kProgram);
}

TEST_F(ProcessTest, RepeatedStartsLeaveNoHandleOpen) {
    const auto live = [this] {
        const auto process = start("no-pipe\nexit 0\n");
        ASSERT_NE(process, nullptr);
        EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
    };
    live();
    live();
    const std::size_t before = support::ownSize().handles;
    for (int i = 0; i < 4; ++i) {
        live();
    }
    EXPECT_TRUE(
        support::eventually("no handle is left", [&] { return support::ownSize().handles <= before; }));
}

} // namespace
