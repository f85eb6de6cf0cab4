// What becomes of a posted task: its turn, its end, and the shutdown that overtakes it.

#include "transport/loop.h"

#include "support/transport/transport_support.h"
#include "support/wait.h"
#include "transport/loop_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

using namespace support;

namespace {

using Steps = std::vector<std::string>;

TEST(LoopTasks, EverythingPostedRunsInOrder) {
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

TEST(LoopTasks, TaskThatRunsOutOfMemoryIsLoggedAndTheNextOneRuns) {
    std::string line;
    setLoopLogSink([&](int level, const char*, const char* text) { line += level == kLogError ? text : ""; });
    bool nextRan = false;
    {
        LoopThread loop;
        loop.run();
        loop->post([] { throw std::bad_alloc(); });
        loop.call([&] { nextRan = true; });
    }
    quietLoopLog();
    EXPECT_TRUE(nextRan);
    EXPECT_NE(line.find("[OUVLoop::onAsync:"), std::string::npos) << line;
    EXPECT_NE(line.find("]out of memory"), std::string::npos) << line;
}

TEST(LoopTasks, PostsOfManyThreadsKeepEachThreadsOrder) {
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

TEST(LoopTasks, TaskPostedByATaskWaitsForTheNextBatch) {
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

TEST(LoopTasks, PostWhileNotRunningIsRefusedAndTheTaskIsDestroyed) {
    const std::shared_ptr<OUVLoop> loop(new OUVLoop);
    auto held = std::make_shared<int>(1);
    EXPECT_EQ(loop->post([held] {}), -1);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(LoopTasks, TaskIsDestroyedWhenItHasRun) {
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

TEST(LoopTasks, TaskAfterTheShutdownInTheSameBatchStillRuns) {
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

TEST(LoopTasks, TaskThatTheShutdownOvertakesIsDiscardedUnrun) {
    LoopThread loop;
    loop.run();
    bool ran = false;
    std::int32_t posted = -1;
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = owned;
    const auto held = loop.hold();
    // Runs in the batch of the shutdown, before it: what it posts is in the queue after that batch.
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

TEST(LoopTasks, EmptyTaskRaisesBadFunctionCall) {
    const std::shared_ptr<OUVLoop> loop(new OUVLoop);
    loop->tasks.emplace_back();
    EXPECT_THROW(loop->asyncHandle->async_cb(loop->asyncHandle), std::bad_function_call);
}

TEST(LoopTasks, WakeUpWithoutTasksDoesNothing) {
    const std::shared_ptr<OUVLoop> loop(new OUVLoop);
    loop->asyncHandle->async_cb(loop->asyncHandle);
    EXPECT_TRUE(loop->tasks.empty());
}

TEST(LoopTasks, QueueIsUnlockedWhileATaskRuns) {
    LoopThread loop;
    loop.run();
    const auto held = loop.hold();
    { const std::lock_guard guard(loop->taskMutex); }
    EXPECT_EQ(loop->post([] {}), 0);
    held->set();
}

TEST(LoopTasks, RemainingTasksAreDestroyedUnrunWithTheLoop) {
    std::shared_ptr<OUVLoop> loop(new OUVLoop);
    bool ran = false;
    auto held = std::make_shared<int>(1);
    loop->tasks.emplace_back([&ran, held] { ran = true; });
    loop.reset();
    EXPECT_FALSE(ran);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(LoopTasks, PostsThatRaceWithTheShutdownEitherRunOrAreDestroyed) {
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
        EXPECT_TRUE(reaches(1, "tasks", [&] { return ran.load(); }));
        loop.stop();
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        EXPECT_EQ(owned.use_count(), 1);
        EXPECT_TRUE(loop->tasks.empty());
    }
}

} // namespace
