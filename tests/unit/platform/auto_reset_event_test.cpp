#include "platform/auto_reset_event.h"

#include "platform/timeout.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

constexpr unsigned kHangLimit = 60000; // ms

} // namespace

TEST(AutoResetEvent, ASignalBeforeTheSleepEndsItAtOnceAndOnlyOnce) {
    const auto event = platform::makeAutoResetEvent();
    event->signal();
    event->signal();
    EXPECT_TRUE(event->wait(kHangLimit));
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
    std::thread sleeper([&] { woken = event->wait(kHangLimit); });
    event->signal();
    sleeper.join();
    EXPECT_TRUE(woken);
}
