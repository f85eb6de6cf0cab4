#include "platform/semaphore.h"

#include "support/wait.h"

#include <gtest/gtest.h>

#include <thread>

TEST(Semaphore, GivesOutWhatWasPutInUpToItsMaximum) {
    platform::Semaphore semaphore(1, 2);
    EXPECT_TRUE(semaphore.wait(support::kTimeoutMs));
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
    std::thread waiter([&] { woken = semaphore.wait(support::kTimeoutMs); });
    semaphore.post();
    waiter.join();
    EXPECT_TRUE(woken);
}
