#include "platform/semaphore.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

constexpr unsigned kHangLimit = 60000; // ms

} // namespace

TEST(Semaphore, GivesOutWhatWasPutInUpToItsMaximum) {
    platform::Semaphore semaphore(1, 2);
    EXPECT_TRUE(semaphore.wait(kHangLimit));
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
    std::thread waiter([&] { woken = semaphore.wait(kHangLimit); });
    semaphore.post();
    waiter.join();
    EXPECT_TRUE(woken);
}
