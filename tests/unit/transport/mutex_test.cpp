#include "transport/mutex.h"

#include <gtest/gtest.h>

#include <chrono>
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

TEST(Condition, WaitsUntilItIsNotifiedAndHoldsTheMutexAgain) {
    OMutex mutex;
    OCondition changed;
    int counter = 0; // plain on purpose: only the mutex keeps the threads apart
    std::thread notifier([&] {
        for (int round = 1; round <= 100; ++round) {
            const std::lock_guard guard(mutex);
            ++counter;
            changed.notifyAll();
        }
    });
    {
        const std::lock_guard guard(mutex);
        while (counter != 100) {
            changed.wait(mutex);
        }
    }
    notifier.join();
}

TEST(Condition, GivesUpAfterItsLimit) {
    OMutex mutex;
    OCondition never;
    const std::lock_guard guard(mutex);
    never.waitFor(mutex, std::chrono::milliseconds(1));
}

} // namespace
