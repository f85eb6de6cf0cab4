// On which thread a dispatched call is made, and when it is dropped.

#include "transport/loop.h"

#include "platform/thread_id.h"
#include "support/transport/fake_handle.h"
#include "support/transport/transport_support.h"
#include "support/wait.h"
#include "transport/loop_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

using namespace support;

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

TEST(LoopDispatch, FromAnotherThreadItHasBeenMadeOnTheLoopThreadOnReturn) {
    LoopThread loop;
    loop.run();
    std::uint32_t calledOn = 0;
    EXPECT_TRUE(loop->dispatch([&] { calledOn = platform::currentThreadId(); }));
    EXPECT_EQ(calledOn, loop->threadId.load());
}

TEST(LoopDispatch, CallsThatABusyLoopKeepsWaitingFollowInTheirOrder) {
    LoopThread loop;
    loop.run();
    Steps order;
    const auto held = loop.hold();
    EXPECT_TRUE(loop->dispatch([&] { order.emplace_back("first"); })); // returns: nobody waits forever
    EXPECT_TRUE(loop->dispatch([&] { order.emplace_back("second"); }));
    EXPECT_TRUE(order.empty());
    held->set();
    EXPECT_TRUE(loop->dispatch([&] { order.emplace_back("third"); }));
    EXPECT_EQ(order, Steps({"first", "second", "third"}));
}

TEST(LoopDispatch, CallThatWaitsIsMadeBeforeAShutdownThatWasAskedForLater) {
    LoopThread loop;
    loop.run();
    std::int32_t stateSeen = -1;
    const auto held = loop.hold();
    EXPECT_TRUE(loop->dispatch([&] { stateSeen = loop->runState.load(); }));
    EXPECT_EQ(loop->stop(), 0);
    held->set();
    loop.join();
    EXPECT_NE(stateSeen, -1);
}

TEST(LoopDispatch, WhileHostCodeRunsOnTheLoopThreadAnotherThreadMakesItsCallItself) {
    LoopThread loop;
    loop.run();
    auto entered = std::make_shared<Signal>();
    auto released = std::make_shared<Signal>();
    loop->post([&loop, entered, released] {
        loop->runOutside([&] {
            entered->set();
            released->wait();
        });
    });
    ASSERT_TRUE(entered->wait());
    std::uint32_t calledOn = 0;
    EXPECT_TRUE(loop->dispatch([&] { calledOn = platform::currentThreadId(); }));
    EXPECT_EQ(calledOn, platform::currentThreadId());
    released->set();
    loop.call([] {});
}

TEST(LoopDispatch, CallerThatWaitsGoesInWhenHostCodeBegins) {
    LoopThread loop;
    loop.run();
    auto begin = std::make_shared<Signal>();
    auto called = std::make_shared<Signal>();
    loop->post([&loop, begin, called] {
        begin->wait();
        loop->runOutside([&] { EXPECT_TRUE(called->wait()); });
    });
    std::thread caller([&] { EXPECT_TRUE(loop->dispatch([called] { called->set(); })); });
    begin->set();
    caller.join();
    loop.call([] {});
}

TEST(LoopDispatch, HostCodeOnTheLoopThreadMayDispatch) {
    LoopThread loop;
    loop.run();
    bool made = false;
    loop.call([&] { loop->runOutside([&] { EXPECT_TRUE(loop->dispatch([&] { made = true; })); }); });
    EXPECT_TRUE(made);
}

TEST(LoopDispatch, MemoryThatRunsOutInACallIsItsCallersAlone) {
    LoopThread loop;
    for (const bool running : {false, true}) {
        if (running) {
            loop.run();
        }
        EXPECT_THROW(loop->dispatch([] { throw std::bad_alloc(); }), std::bad_alloc);
        bool made = false;
        EXPECT_TRUE(loop->dispatch([&] { made = true; }));
        EXPECT_TRUE(made);
    }
}

TEST(LoopDispatch, MemoryThatRunsOutInACallThatNobodyWaitsForIsLogged) {
    std::string line;
    setLoopLogSink([&](int level, const char*, const char* text) { line += level == kLogError ? text : ""; });
    LoopThread loop;
    loop.run();
    const auto held = loop.hold();
    EXPECT_TRUE(loop->dispatch([] { throw std::bad_alloc(); }));
    held->set();
    loop.call([] {});
    quietLoopLog();
    EXPECT_NE(line.find("[LoopEntry::runQueued:"), std::string::npos) << line;
    EXPECT_NE(line.find("]out of memory"), std::string::npos) << line;
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
            std::thread([&] { EXPECT_FALSE(loop->dispatch([&called, owned] { called = true; })); }).join();
        };
        loop.run();
        loop.stop();
    }
    EXPECT_FALSE(called);
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(record.count("closed"), 1);
    discardTimer(*loop.loop(), timer);
}

// A handle that a callback opens after the shutdown walk would leak: the loop would never end.
TEST(LoopDispatch, OnTheLoopThreadOfAStoppingLoopItDropsTheCall) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    bool called = false;
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [&] { EXPECT_FALSE(loop->dispatch([&called] { called = true; })); };
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
        std::atomic<int> accepted{0};
        bool overlapped = false;
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                ++ready;
                for (int call = 0; call < 300; ++call) {
                    accepted += loop->dispatch([&] {
                        overlapped = overlapped || ++inside != 1;
                        ++made;
                        --inside;
                    })
                                    ? 1
                                    : 0;
                }
            });
        }
        EXPECT_TRUE(reaches(4, "threads ready", [&] { return ready.load(); }));
        loop.run();
        std::this_thread::yield();
        loop.stop();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(overlapped);
        EXPECT_EQ(made, accepted.load()); // a call is refused or made, whatever the shutdown overtakes
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
