#include "platform/auto_reset_event.h"

#include "platform/timeout.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <thread>

TEST(AutoResetEvent, ASignalBeforeTheSleepEndsItAtOnceAndOnlyOnce) {
    const auto event = platform::makeAutoResetEvent();
    event->signal();
    event->signal();
    EXPECT_TRUE(event->wait(support::kTimeoutMs));
    EXPECT_FALSE(event->wait(1));
    EXPECT_FALSE(event->wait(0));
}

TEST(AutoResetEvent, ASignalEndsASleepWithoutLimit) {
    const auto event = platform::makeAutoResetEvent();
    bool woken = false;
    std::thread sleeper([&] { woken = event->wait(platform::kNoTimeout); });
    event->signal();
    sleeper.join();
    EXPECT_TRUE(woken);
}

TEST(AutoResetEvent, ASignalEndsASleep) {
    const auto event = platform::makeAutoResetEvent();
    bool woken = false;
    std::thread sleeper([&] { woken = event->wait(support::kTimeoutMs); });
    event->signal();
    sleeper.join();
    EXPECT_TRUE(woken);
}
