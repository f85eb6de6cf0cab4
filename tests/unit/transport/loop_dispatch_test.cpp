// On which thread a dispatched call is made, and when it is dropped.

#include "transport/loop.h"

#include "fake_handle.h"
#include "platform/thread_id.h"
#include "transport_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Steps = std::vector<std::string>;

TEST(LoopDispatch, OnTheLoopThreadItCallsAtOnce) {
    LoopThread loop;
    loop.run();
    bool calledAtOnce = false;
    loop.call([&] {
        bool called = false;
        loop->dispatch([&] { called = true; });
        calledAtOnce = called;
    });
    EXPECT_TRUE(calledAtOnce);
}

TEST(LoopDispatch, FromAnotherThreadItQueuesBehindEarlierPosts) {
    LoopThread loop;
    loop.run();
    Steps order;
    std::uint32_t dispatchedOn = 0;
    const auto held = loop.hold();
    loop->post([&] { order.emplace_back("posted"); });
    loop->dispatch([&] {
        order.emplace_back("dispatched");
        dispatchedOn = platform::currentThreadId();
    });
    held->set();
    loop.call([] {});
    EXPECT_EQ(order, Steps({"posted", "dispatched"}));
    EXPECT_EQ(dispatchedOn, loop->threadId.load());
}

TEST(LoopDispatch, WhenNothingRunsTheLoopItCallsOnTheCallersThread) {
    LoopThread loop;
    std::uint32_t calledOn = 0;
    const auto note = [&] { calledOn = platform::currentThreadId(); };
    loop->dispatch(note);
    EXPECT_EQ(calledOn, platform::currentThreadId());
    loop.run();
    loop.stop();
    calledOn = 0;
    loop->dispatch(note);
    EXPECT_EQ(calledOn, platform::currentThreadId()) << "also after the loop has ended";
}

TEST(LoopDispatch, WhenTheLoopIsStoppingItDropsTheCall) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    bool called = false;
    auto owned = std::make_shared<int>(1);
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [&] {
            std::thread([&] { loop->dispatch([&called, owned] { called = true; }); }).join();
        };
        loop.run();
        loop.stop();
    }
    EXPECT_FALSE(called);
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(record.count("closed"), 1);
    discardTimer(*loop.loop(), timer);
}

// What a callback opens behind the walk of the shutdown is closed by nobody: the loop would never end.
TEST(LoopDispatch, OnTheLoopThreadOfAStoppingLoopItDropsTheCall) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    bool called = false;
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [&] { loop->dispatch([&called] { called = true; }); };
        loop.run();
        loop.stop();
    }
    EXPECT_FALSE(called);
    EXPECT_EQ(record.count("closed"), 1);
    discardTimer(*loop.loop(), timer);
}

TEST(LoopDispatch, CallMadeDirectlyMayDispatchAgain) {
    const std::shared_ptr<OUVLoop> loop(new OUVLoop);
    Steps order;
    loop->dispatch([&] {
        order.emplace_back("outer");
        loop->dispatch([&] { order.emplace_back("inner"); });
    });
    EXPECT_EQ(order, Steps({"outer", "inner"}));
}

// The counter is plain on purpose: the thread sanitizer says so if two calls can ever overlap.
TEST(LoopDispatch, CallsOfManyThreadsNeverOverlapWhateverTheLoopDoes) {
    for (int round = 0; round < 20; ++round) {
        LoopThread loop;
        int inside = 0;
        int made = 0;
        bool overlapped = false;
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                ++ready;
                for (int call = 0; call < 300; ++call) {
                    loop->dispatch([&] {
                        overlapped = overlapped || ++inside != 1;
                        ++made;
                        --inside;
                    });
                }
            });
        }
        EXPECT_TRUE(support::eventually([&] { return ready.load() == 4; }));
        loop.run();
        std::this_thread::yield();
        loop.stop();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(overlapped);
        EXPECT_LE(made, 4 * 300);
    }
}

TEST(LoopDispatch, CallsBeforeAndWhileTheLoopRunsAreAllMade) {
    LoopThread loop;
    int made = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 500; ++call) {
                loop->dispatch([&] { ++made; });
            }
        });
    }
    loop.run();
    for (std::thread& thread : threads) {
        thread.join();
    }
    int seen = 0;
    loop.call([&] { seen = made; });
    EXPECT_EQ(seen, 4 * 500);
}

} // namespace
