#include "platform/service_process.h"

#include "support/process.h"
#include "support/standin.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;
using platform::ServiceProcess;

class ServiceProcessTest : public testing::Test {
protected:
    void SetUp() override {
        support::enterTestFolder();
        ServiceProcess::killAll();
    }

    void TearDown() override { ServiceProcess::killAll(); }

    /// The service, playing `scenario`, when it has begun to.
    std::unique_ptr<ServiceProcess> start(const std::string& scenario) {
        standin.play(scenario);
        int systemError = 0;
        std::unique_ptr<ServiceProcess> process = ServiceProcess::start("the-logs", 2, systemError);
        EXPECT_NE(process, nullptr) << systemError;
        EXPECT_TRUE(standin.waitForEvent("start"));
        return process;
    }

    support::Standin standin;
};

TEST_F(ServiceProcessTest, ServiceBesideTheHostGetsTheLogFolderAndTheLevel) {
    const auto process = start("no-pipe\n");
    ASSERT_NE(process, nullptr);
    const support::Json::List argv = standin.recorded("start").front().at("argv").list();
    ASSERT_EQ(argv.size(), 3U);
    EXPECT_EQ(argv[1].text(), "the-logs");
    EXPECT_EQ(argv[2].text(), "2");
}

TEST_F(ServiceProcessTest, WaitForAServiceThatRunsEndsWithItsLimit) {
    const auto process = start("no-pipe\n");
    ASSERT_NE(process, nullptr);
    EXPECT_FALSE(process->waitForEnd(0ms));
    EXPECT_FALSE(process->waitForEnd(20ms));
    EXPECT_TRUE(standin.running());
}

TEST_F(ServiceProcessTest, WaitForAServiceThatEndsIsMet) {
    const auto process = start("no-pipe\nexit 3\n");
    ASSERT_NE(process, nullptr);
    EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
    EXPECT_TRUE(process->waitForEnd(0ms)) << "and stays met";
    EXPECT_FALSE(standin.running());
}

TEST_F(ServiceProcessTest, KillAllEndsTheServiceAndItsChildren) {
    const auto process = start("no-pipe\nchildren 2\n");
    ASSERT_NE(process, nullptr);
    ASSERT_TRUE(standin.waitForEvent("child", 2));
    const auto children = standin.recorded("child");
    for (const support::Json& child : children) {
        ASSERT_TRUE(support::processRuns(child.numberOf("pid"), "standin_child.exe"));
    }
    ServiceProcess::killAll();
    EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
    for (const support::Json& child : children) {
        const auto pid = child.numberOf("pid");
        EXPECT_TRUE(support::processEnds(pid, "standin_child.exe"));
    }
}

TEST_F(ServiceProcessTest, KillAllEndsEveryServiceEvenOneThatNobodyHolds) {
    start("no-pipe\n").reset();
    const std::int64_t forgotten = standin.pid();
    int systemError = 0;
    const auto second = ServiceProcess::start("the-logs", 2, systemError);
    ASSERT_NE(second, nullptr) << systemError;
    ASSERT_TRUE(standin.waitForEvent("start", 2));
    ServiceProcess::killAll();
    EXPECT_TRUE(second->waitForEnd(support::kProcessTimeout));
    EXPECT_TRUE(support::processEnds(forgotten, "QuPCAudio.exe"));
}

TEST_F(ServiceProcessTest, KillAllWithNothingToEndReturns) {
    ServiceProcess::killAll();
    ServiceProcess::killAll();
}

TEST_F(ServiceProcessTest, LivesOfServicesLeaveNoHandleOpen) {
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
