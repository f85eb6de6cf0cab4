#include "platform/wake_up.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

constexpr unsigned kGuard = 60000; // ms

} // namespace

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
