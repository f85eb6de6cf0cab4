#include "platform/critical_section.h"
#include "platform/semaphore.h"
#include "platform/thread.h"
#include "platform/wake_up.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr unsigned kGuard = 60000; // ms

} // namespace

TEST(Semaphore, GivesOutWhatWasPutInUpToItsMaximum) {
    platform::Semaphore semaphore(1, 2);
    EXPECT_TRUE(semaphore.wait(kGuard));
    EXPECT_FALSE(semaphore.wait(0));
    EXPECT_TRUE(semaphore.post());
    EXPECT_TRUE(semaphore.post());
    EXPECT_FALSE(semaphore.post()) << "full";
    EXPECT_TRUE(semaphore.wait(0));
    EXPECT_TRUE(semaphore.wait(0));
    EXPECT_FALSE(semaphore.wait(1));
}

TEST(Semaphore, WakesAWaitingThread) {
    platform::Semaphore semaphore(0, 64);
    bool woken = false;
    std::thread waiter([&] { woken = semaphore.wait(kGuard); });
    semaphore.post();
    waiter.join();
    EXPECT_TRUE(woken);
}

TEST(WakeUp, ASignalBeforeTheSleepEndsItAtOnceAndOnlyOnce) {
    platform::WakeUp wakeUp;
    wakeUp.signal();
    wakeUp.signal();
    EXPECT_TRUE(wakeUp.wait(kGuard));
    EXPECT_FALSE(wakeUp.wait(1));
    EXPECT_FALSE(wakeUp.wait(0));
}

TEST(WakeUp, ASignalEndsASleep) {
    platform::WakeUp wakeUp;
    bool woken = false;
    std::thread sleeper([&] { woken = wakeUp.wait(kGuard); });
    wakeUp.signal();
    sleeper.join();
    EXPECT_TRUE(woken);
}

TEST(Thread, RunsItsEntryAndTellsWhenItHasEnded) {
    platform::Thread thread;
    EXPECT_TRUE(thread.hasEnded()) << "never started";
    thread.join();
    for (int round = 0; round < 2; ++round) {
        platform::Semaphore go(0, 1);
        ASSERT_TRUE(thread.start(
            [](void* semaphore) { static_cast<platform::Semaphore*>(semaphore)->wait(kGuard); }, &go));
        EXPECT_FALSE(thread.hasEnded());
        go.post();
        thread.join();
        EXPECT_TRUE(thread.hasEnded());
    }
}

TEST(CriticalSection, LetsOneThreadInAtATime) {
    platform::CriticalSection section;
    int count = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                const std::lock_guard<platform::CriticalSection> guard(section);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 40000);
}
