#include "api/life_cycle.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

using namespace support;

namespace {

LogLine warning(const std::string& text) {
    return {'W', kApiTag, "ThreadFun", 0, text};
}

} // namespace

TEST(ThreadFun, EndsWithAWarningWithoutALoop) {
    LogCapture log;
    ThreadFun(nullptr);
    EXPECT_EQ(log.lines(kApiTag), (std::vector<LogLine>{warning("loop is NULL")}));
}

TEST(ThreadFun, RunsTheLoopUntilItIsStopped) {
    const auto loop = std::make_shared<OUVLoop>();
    LogCapture log;
    std::thread thread([&] { ThreadFun(loop); });
    loop->waitForRun();
    EXPECT_EQ(loop->runState.load(), OUVLoop::kRunning);
    EXPECT_EQ(loop->stop(), 0); // accepted from then on
    thread.join();
    EXPECT_EQ(log.lines(kApiTag),
              (std::vector<LogLine>{warning("SonviaPCDll begin run"), warning("SonviaPCDll will out run")}));
    EXPECT_EQ(loop->runState.load(), OUVLoop::kNotRunning);
}

TEST(ThreadFun, EndsWithAWarningWhenTheLoopRunsAlready) {
    const auto loop = std::make_shared<OUVLoop>();
    std::thread thread([&] { loop->run(); });
    loop->waitForRun();
    LogCapture log;
    ThreadFun(loop);
    EXPECT_EQ(log.lines(kApiTag), (std::vector<LogLine>{warning("SonviaPCDll is running")}));
    loop->stop();
    thread.join();
}

TEST(ThreadFun, OfTwoThreadsThatRaceForTheLoopOneRunsIt) {
    LogCapture quiet;
    for (int round = 0; round < 200; ++round) {
        const auto loop = std::make_shared<OUVLoop>();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([&] { ThreadFun(loop); });
        }
        loop->waitForRun();
        EXPECT_EQ(loop->stop(), 0);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST(ThreadFun, TheThreadGivesItsShareOfTheLoopBack) {
    LogCapture quiet;
    AudioServiceHandle handle;
    handle.loop = std::make_shared<OUVLoop>();
    ASSERT_TRUE(startLoopThread(handle));
    handle.loop->stop();
    handle.loopThread->join();
    EXPECT_EQ(handle.loop.use_count(), 1);
}

TEST(ThreadFun, StartingTheThreadTwiceStartsOne) {
    LogCapture log;
    AudioServiceHandle handle;
    handle.loop = std::make_shared<OUVLoop>();
    ASSERT_TRUE(startLoopThread(handle));
    const platform::Thread* first = handle.loopThread.get();
    EXPECT_EQ(handle.loop->runState.load(), OUVLoop::kRunning); // a stop would be accepted
    ASSERT_TRUE(startLoopThread(handle));
    EXPECT_EQ(handle.loopThread.get(), first);
    handle.loop->stop();
    handle.loopThread->join();
    EXPECT_EQ(log.lines(kApiTag).size(), 2U);
}
