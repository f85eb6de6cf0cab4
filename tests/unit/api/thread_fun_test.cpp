#include "api/life_cycle.h"
#include "support/wait.h"
#include "unit/protocol/log_lines.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

namespace {

constexpr const char* kTag = "SonviaPCAudioDll";

LogLine warning(const std::string& text) {
    return {'W', kTag, "ThreadFun", 0, text};
}

} // namespace

TEST(ThreadFun, EndsWithAWarningWithoutALoop) {
    LogCapture log;
    int started = 0;
    ThreadFun(nullptr, [&started] { ++started; });
    EXPECT_EQ(log.lines(kTag), (std::vector<LogLine>{warning("loop is NULL")}));
    EXPECT_EQ(started, 1);
}

TEST(ThreadFun, RunsTheLoopUntilItIsStopped) {
    const auto loop = std::make_shared<OUVLoop>();
    LogCapture log;
    std::promise<void> started;
    std::thread thread([&] { ThreadFun(loop, [&started] { started.set_value(); }); });
    started.get_future().wait();
    EXPECT_EQ(loop->runState.load(), OUVLoop::kRunning);
    EXPECT_EQ(loop->stop(), 0); // accepted as soon as `started` has been called
    thread.join();
    EXPECT_EQ(log.lines(kTag),
              (std::vector<LogLine>{warning("SonviaPCDll begin run"), warning("SonviaPCDll will out run")}));
    EXPECT_EQ(loop->runState.load(), OUVLoop::kNotRunning);
}

TEST(ThreadFun, EndsWithAWarningWhenTheLoopRunsAlready) {
    const auto loop = std::make_shared<OUVLoop>();
    std::promise<void> started;
    std::thread thread([&] { loop->run([&started] { started.set_value(); }); });
    started.get_future().wait();
    LogCapture log;
    int second = 0;
    ThreadFun(loop, [&second] { ++second; });
    EXPECT_EQ(log.lines(kTag), (std::vector<LogLine>{warning("SonviaPCDll is running")}));
    EXPECT_EQ(second, 1);
    loop->stop();
    thread.join();
}

TEST(ThreadFun, WhoeverRacesForTheLoopHearsThatItStarted) {
    LogCapture quiet;
    for (int round = 0; round < 200; ++round) {
        const auto loop = std::make_shared<OUVLoop>();
        std::atomic<int> started{0};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 2; ++thread) {
            threads.emplace_back([&] { ThreadFun(loop, [&started] { ++started; }); });
        }
        EXPECT_TRUE(support::eventually([&started] { return started.load() == 2; }));
        loop->stop();
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
    const std::thread::id first = handle.loopThread->get_id();
    EXPECT_EQ(handle.loop->runState.load(), OUVLoop::kRunning); // a stop would be accepted
    ASSERT_TRUE(startLoopThread(handle));
    EXPECT_EQ(handle.loopThread->get_id(), first);
    handle.loop->stop();
    handle.loopThread->join();
    EXPECT_EQ(log.lines(kTag).size(), 2U);
}
