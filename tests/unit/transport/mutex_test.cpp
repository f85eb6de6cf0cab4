#include "transport/mutex.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace {

TEST(Mutex, OneThreadAtATimeHoldsIt) {
    OMutex mutex;
    int counter = 0; // plain on purpose: only the mutex keeps the threads apart
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                const std::lock_guard guard(mutex);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8000);
}

TEST(Mutex, GuardUnlocksWhenItsScopeEnds) {
    OMutex mutex;
    { const std::lock_guard guard(mutex); }
    bool entered = false;
    std::thread([&] {
        const std::lock_guard guard(mutex);
        entered = true;
    }).join();
    EXPECT_TRUE(entered);
}

TEST(Mutex, GuardThatGaveTheLockAwayDoesNotUnlockAgain) {
    OMutex mutex;
    {
        std::unique_lock guard(mutex);
        guard.unlock();
    }
    const std::lock_guard again(mutex);
}

} // namespace
