#include "transport/loop.h"

#include "platform/thread_id.h"
#include "support/transport/fake_handle.h"
#include "support/transport/transport_support.h"
#include "transport/loop_log.h"

#include "support/process.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace support;

namespace {

using Steps = std::vector<std::string>;

std::shared_ptr<OUVLoop> newLoop() {
    return std::shared_ptr<OUVLoop>(new OUVLoop);
}

TEST(Loop, IsNotRunningAtFirst) {
    const auto loop = newLoop();
    EXPECT_EQ(loop->threadId.load(), 0U);
    EXPECT_EQ(loop->runState.load(), 0);
    EXPECT_TRUE(loop->tasks.empty());
    EXPECT_EQ(loop->uvLoop(), loop->loop);
    EXPECT_EQ(loop->asyncHandle->data, loop.get());
    EXPECT_FALSE(loop->onLoopThread());
}

TEST(Loop, LogsItsLifeWithFixedLinesForCompatibility) {
    Steps lines;
    setLoopLogSink([&lines](int level, const char* tag, const char* text) {
        lines.push_back(std::to_string(level) + " " + tag + " " + text);
    });
    newLoop().reset();
    quietLoopLog();
    EXPECT_EQ(lines, Steps({"0 Sonvia_Default [OUVLoop::OUVLoop:20]OUVLoop",
                            "0 Sonvia_Default [OUVLoop::~OUVLoop:39]~OUVLoop"}));
}

TEST(Loop, RunRecordsItsThreadAndIsRunningBeforeItsFirstEvent) {
    const auto loop = newLoop();
    std::int32_t stateAtEntry = -1;
    std::int32_t stopAtEntry = -1;
    bool onLoopThread = false;
    std::thread thread([&] {
        EXPECT_TRUE(loop->run([&] {
            EXPECT_EQ(loop->threadId.load(), platform::currentThreadId());
            stateAtEntry = loop->runState.load();
            onLoopThread = loop->onLoopThread();
            stopAtEntry = loop->stop();
        }));
    });
    thread.join();
    EXPECT_EQ(stateAtEntry, 1);
    EXPECT_TRUE(onLoopThread);
    EXPECT_EQ(stopAtEntry, 0);
    EXPECT_EQ(loop->runState.load(), 0);
    EXPECT_FALSE(loop->onLoopThread());
}

TEST(Loop, StopBeforeItRunsIsRefusedAndItRunsUntilStoppedLater) {
    LoopThread loop;
    EXPECT_EQ(loop->stop(), -1);
    EXPECT_TRUE(loop->tasks.empty());
    loop.run();
    bool ran = false;
    loop.call([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(loop->runState.load(), 1);
    EXPECT_EQ(loop->stop(), 0);
    loop.join();
    EXPECT_TRUE(loop.lastRunResult);
}

TEST(Loop, SecondStopIsRefusedOnceTheShutdownHasRun) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    std::int32_t stateWhileClosing = -1;
    std::int32_t stopWhileClosing = 0;
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [&] {
            stateWhileClosing = loop->runState.load();
            stopWhileClosing = loop->stop();
        };
        loop.run();
        EXPECT_EQ(loop->stop(), 0);
        loop.join();
    }
    EXPECT_EQ(stateWhileClosing, 2);
    EXPECT_EQ(stopWhileClosing, -1);
    EXPECT_EQ(loop->runState.load(), 0);
    EXPECT_EQ(loop->stop(), -1);
    EXPECT_TRUE(loop->tasks.empty());
    discardTimer(*loop.loop(), timer);
}

TEST(Loop, TwoStopsBeforeTheShutdownRanEndItOnce) {
    LoopThread loop;
    loop.run();
    const auto held = loop.hold();
    EXPECT_EQ(loop->stop(), 0);
    EXPECT_EQ(loop->stop(), 0);
    held->set();
    loop.join();
    EXPECT_EQ(loop->runState.load(), 0);
}

TEST(Loop, RunWhileRunningIsRefusedAtOnce) {
    LoopThread loop;
    loop.run();
    bool entered = false;
    EXPECT_FALSE(loop->run([&] { entered = true; }));
    bool nested = true;
    loop.call([&] { nested = loop->run([&] { entered = true; }); });
    EXPECT_FALSE(nested);
    EXPECT_FALSE(entered);
    EXPECT_NE(loop->threadId.load(), platform::currentThreadId());
}

TEST(Loop, StopFromAnyThreadIsAccepted) {
    LoopThread loop;
    loop.run();
    std::int32_t result = -1;
    std::thread([&] { result = loop->stop(); }).join();
    EXPECT_EQ(result, 0);
    loop.join();
}

TEST(Loop, ShutdownSkipsAHandleWithoutAnOwner) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    loop.run();
    loop.stop();
    EXPECT_TRUE(loop.lastRunResult);
    EXPECT_EQ(uv_is_closing(asHandle(timer)), 0);
    discardTimer(*loop.loop(), timer);
}

TEST(Loop, ShutdownClearsTheCallbacksOfEveryHandleBeforeItClosesIt) {
    LoopThread loop;
    uv_timer_t* first = newTimer(*loop.loop());
    uv_timer_t* second = newTimer(*loop.loop());
    FakeHandleRecord firstRecord;
    FakeHandleRecord secondRecord;
    {
        FakeHandle firstHandle(loop.loop(), first, firstRecord);
        FakeHandle secondHandle(loop.loop(), second, secondRecord);
        loop.run();
        loop.stop();
        EXPECT_EQ(firstRecord.steps, Steps({"clear", "close", "release", "closed"}));
        EXPECT_EQ(secondRecord.steps, firstRecord.steps);
    }
    discardTimer(*loop.loop(), first);
    discardTimer(*loop.loop(), second);
}

TEST(Loop, ShutdownClearsAHandleThatIsClosingAlreadyAndLeavesItToLibuv) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    {
        FakeHandle handle(loop.loop(), timer, record);
        loop.run();
        const auto held = loop.hold();
        loop->post([&] { handle.close(); });
        loop->stop();
        held->set();
        loop.join();
        EXPECT_EQ(record.steps, Steps({"close", "clear", "release", "closed"}));
    }
    discardTimer(*loop.loop(), timer);
}

TEST(Loop, TwoLoopsRunIndependently) {
    LoopThread first;
    LoopThread second;
    first.run();
    second.run();
    EXPECT_NE(first->threadId.load(), second->threadId.load());
    first.stop();
    bool ran = false;
    second.call([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(first->runState.load(), 0);
    EXPECT_EQ(second->runState.load(), 1);
}

TEST(Loop, IsDestroyedWithItsLastShare) {
    auto loop = newLoop();
    const std::weak_ptr<OUVLoop> watch = loop;
    std::thread thread([share = loop] { share->run(); });
    EXPECT_TRUE(eventually("the loop accepts its stop", [&] { return loop->stop() == 0; }));
    thread.join();
    loop.reset();
    EXPECT_TRUE(watch.expired()) << "the shutdown task keeps no share";
}

TEST(Loop, LoopsThatNeverRanLeaveNoHandleOpen) {
    newLoop().reset(); // what libuv opens once for the process
    const std::size_t before = ownSize().handles;
    for (int i = 0; i < 20; ++i) {
        newLoop().reset();
    }
    EXPECT_EQ(ownSize().handles, before);
}

TEST(Loop, LoopsThatRanLeaveNoHandleOpen) {
    const auto live = [] {
        LoopThread loop;
        loop.run();
        loop.call([] {});
    };
    live();
    live();
    const std::size_t before = ownSize().handles;
    for (int i = 0; i < 20; ++i) {
        live();
    }
    // A thread that has ended may keep its handle for a moment under Windows.
    EXPECT_TRUE(eventually("no handle is left", [&] { return ownSize().handles <= before; }));
}

TEST(Loop, LoopsOfSeveralThreadsMayComeAndGoAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                newLoop().reset();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
