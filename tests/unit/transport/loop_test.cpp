#include "transport/loop.h"

#include "fake_handle.h"
#include "platform/thread_id.h"
#include "transport/loop_log.h"
#include "transport_support.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

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

TEST(Loop, SaysWhenItIsMadeAndWhenItGoes) {
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

TEST(Loop, EverythingPostedRunsInOrder) {
    LoopThread loop;
    loop.run();
    std::vector<int> order;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(loop->post([&order, i] { order.push_back(i); }), 0);
    }
    loop.call([] {});
    ASSERT_EQ(order.size(), 1000U);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(order[static_cast<std::size_t>(i)], i);
    }
}

TEST(Loop, PostsOfManyThreadsKeepEachThreadsOrder) {
    LoopThread loop;
    loop.run();
    constexpr int kThreads = 4;
    constexpr int kPosts = 500;
    std::vector<std::vector<int>> orders(kThreads);
    std::vector<std::thread> threads;
    for (std::vector<int>& order : orders) {
        threads.emplace_back([&loop, &order] {
            for (int i = 0; i < kPosts; ++i) {
                loop->post([&order, i] { order.push_back(i); });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    loop.call([] {});
    for (const std::vector<int>& order : orders) {
        ASSERT_EQ(order.size(), static_cast<std::size_t>(kPosts));
        EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    }
}

TEST(Loop, TaskPostedByATaskWaitsForTheNextBatch) {
    LoopThread loop;
    loop.run();
    Steps order;
    auto done = std::make_shared<Signal>();
    const auto held = loop.hold();
    loop->post([&] {
        order.emplace_back("first");
        loop->post([&, done] {
            order.emplace_back("posted by first");
            done->set();
        });
    });
    loop->post([&] { order.emplace_back("second"); });
    held->set();
    ASSERT_TRUE(done->wait());
    EXPECT_EQ(order, Steps({"first", "second", "posted by first"}));
}

TEST(Loop, PostWhileNotRunningIsRefusedAndTheTaskIsDestroyed) {
    const auto loop = newLoop();
    auto held = std::make_shared<int>(1);
    EXPECT_EQ(loop->post([held] {}), -1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(Loop, TaskIsDestroyedWhenItHasRun) {
    LoopThread loop;
    loop.run();
    auto held = std::make_shared<int>(1);
    long whileNextRuns = 0;
    const auto pause = loop.hold();
    loop->post([held] {});
    loop->post([&] { whileNextRuns = held.use_count(); });
    pause->set();
    loop.call([] {});
    EXPECT_EQ(whileNextRuns, 1);
}

TEST(Loop, TaskBehindTheShutdownInTheSameBatchStillRuns) {
    LoopThread loop;
    loop.run();
    std::int32_t stateSeen = -1;
    const auto held = loop.hold();
    EXPECT_EQ(loop->stop(), 0);
    EXPECT_EQ(loop->post([&] { stateSeen = loop->runState.load(); }), 0);
    held->set();
    loop.join();
    EXPECT_EQ(stateSeen, 2) << "it ran, and after the shutdown";
}

TEST(Loop, TaskThatTheShutdownOvertakesIsDiscardedUnrun) {
    LoopThread loop;
    loop.run();
    bool ran = false;
    std::int32_t posted = -1;
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = owned;
    const auto held = loop.hold();
    // Runs in the batch of the shutdown, before it: what it posts is in the queue behind that batch.
    loop->post([&loop, &ran, &posted, owned] { posted = loop->post([&ran, owned] { ran = true; }); });
    owned.reset();
    loop->stop();
    held->set();
    loop.join();
    EXPECT_EQ(posted, 0);
    EXPECT_FALSE(ran);
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(loop->tasks.empty());
}

TEST(Loop, EmptyTaskRaisesBadFunctionCall) {
    const auto loop = newLoop();
    loop->tasks.emplace_back();
    EXPECT_THROW(loop->asyncHandle->async_cb(loop->asyncHandle), std::bad_function_call);
}

TEST(Loop, WakeUpWithoutTasksDoesNothing) {
    const auto loop = newLoop();
    loop->asyncHandle->async_cb(loop->asyncHandle);
    EXPECT_TRUE(loop->tasks.empty());
}

TEST(Loop, QueueIsUnlockedWhileATaskRuns) {
    LoopThread loop;
    loop.run();
    const auto held = loop.hold();
    { const std::lock_guard guard(loop->taskMutex); }
    EXPECT_EQ(loop->post([] {}), 0);
    held->set();
}

TEST(Loop, RemainingTasksAreDestroyedUnrunWithTheLoop) {
    auto loop = newLoop();
    bool ran = false;
    auto held = std::make_shared<int>(1);
    loop->tasks.emplace_back([&ran, held] { ran = true; });
    loop.reset();
    EXPECT_FALSE(ran);
    EXPECT_EQ(held.use_count(), 1);
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

TEST(Loop, PostsThatRaceWithTheShutdownEitherRunOrAreDestroyed) {
    for (int round = 0; round < 50; ++round) {
        LoopThread loop;
        loop.run();
        auto owned = std::make_shared<int>(1);
        std::atomic<int> ran{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&loop, &ran, owned] {
                while (loop->post([&ran, owned] { ++ran; }) == 0) {
                }
            });
        }
        EXPECT_TRUE(support::eventually([&] { return ran.load() > 0; }));
        loop.stop();
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        EXPECT_EQ(owned.use_count(), 1);
        EXPECT_TRUE(loop->tasks.empty());
    }
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
    EXPECT_TRUE(support::eventually([&] { return loop->stop() == 0; }));
    thread.join();
    loop.reset();
    EXPECT_TRUE(watch.expired()) << "the shutdown task keeps no share";
}

TEST(Loop, LoopsThatNeverRanLeaveNoHandleOpen) {
    newLoop().reset(); // what libuv opens once for the process
    const std::size_t before = support::ownSize().handles;
    for (int i = 0; i < 20; ++i) {
        newLoop().reset();
    }
    EXPECT_EQ(support::ownSize().handles, before);
}

TEST(Loop, LoopsThatRanLeaveNoHandleOpen) {
    const auto live = [] {
        LoopThread loop;
        loop.run();
        loop.call([] {});
    };
    live();
    live();
    const std::size_t before = support::ownSize().handles;
    for (int i = 0; i < 20; ++i) {
        live();
    }
    // A thread that has ended may keep its handle for a moment under Windows.
    EXPECT_TRUE(support::eventually([&] { return support::ownSize().handles <= before; }));
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
