#include "platform/clock.h"

#include "support/log/fake_clock.h"

#include <gtest/gtest.h>

using namespace support;

TEST(LocalMidnight, IsNeverLaterThanTheMomentWhereMidnightHappensTwice) {
    // The clock goes back from 24:00 to 23:00 and midnight comes again an hour later.
    FakeClock clock([](std::int64_t utc) { return utc < 86400 ? std::int64_t{3600} : std::int64_t{0}; });
    for (std::int64_t moment = 0; moment < 3 * 86400; moment += 600) {
        EXPECT_LE(platform::localMidnight(clock, moment), moment);
    }
}

TEST(SystemClock, ConvertsToLocalTimeAndBack) {
    platform::Clock& clock = platform::systemClock();
    const std::int64_t now = clock.now().seconds;
    EXPECT_GT(now, 1'600'000'000);
    EXPECT_LT(clock.now().milliseconds, 1000u);
    EXPECT_EQ(clock.fromLocal(clock.toLocal(now)), now);
    const std::int64_t midnight = platform::localMidnight(clock, now);
    EXPECT_LE(midnight, now);
    EXPECT_EQ(clock.toLocal(midnight).hour, 0);
    EXPECT_EQ(clock.toLocal(midnight).day, clock.toLocal(now).day);
}
