#include "api/service_process.h"

#include "support/process.h"
#include "support/standin.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class ServiceProcess : public testing::Test {
protected:
    void SetUp() override {
        support::enterTestFolder();
        api::endEveryService();
        standin.play("no-pipe\n");
        process = api::startService("the-logs", kLevel, systemError);
        ASSERT_NE(process, nullptr) << systemError;
        ASSERT_TRUE(standin.waitForEvent("start"));
    }

    void TearDown() override { api::endEveryService(); }

    static constexpr int kLevel = -12;
    int systemError = 0;
    support::Standin standin;
    std::unique_ptr<platform::Process> process;
};

TEST_F(ServiceProcess, GetsTheLogFolderAndTheSignedLevel) {
    const support::Json::List argv = standin.recorded("start").front().at("argv").list();
    ASSERT_EQ(argv.size(), 3U);
    EXPECT_EQ(argv[1].text(), "the-logs");
    EXPECT_EQ(argv[2].text(), "-12");
}

TEST_F(ServiceProcess, EndsWithEveryOtherService) {
    api::endEveryService();
    EXPECT_TRUE(process->waitForEnd(support::kProcessTimeout));
}

} // namespace
