#include "log/log_names.h"

#include "support/log/fake_clock.h"

#include <gtest/gtest.h>

using namespace support;
using namespace orvel::log4z;

TEST(LogNames, AFileIsNamedAfterItsLoggerAndTheTimeOfItsFirstLine) {
    EXPECT_EQ(logFileName("sonvia_Sonvia", {2026, 3, 9, 7, 5, 2}), "sonvia_Sonvia_2026-03-09-07-05-02.log");
    EXPECT_EQ(monthFolderName({2026, 3, 9, 7, 5, 2}), "2026_03/");
}

TEST(LogNames, TheTimeInAnOldNameIsReadBack) {
    FakeClock clock;
    const std::int64_t time = clock.fromLocal({2026, 3, 9, 7, 5, 2});
    EXPECT_EQ(timeInName("sonvia_Sonvia_2026-03-09-07-05-02.log", clock), time);
    EXPECT_EQ(timeInName("sonvia_Sonvia_2026-03-09-07-05-02.log.zip", clock), time);
    EXPECT_EQ(timeInName("logger_2019-01-01-00-00-00_2026-03-09-07-05-02.log", clock), time)
        << "the last one counts";
}

TEST(LogNames, ANameWithOnlyTheShortFormTakesThatDaysMidnight) {
    FakeClock clock;
    EXPECT_EQ(timeInName("sonvia_Sonvia_2026030917.log", clock), clock.fromLocal({2026, 3, 9, 0, 0, 0}));
}

TEST(LogNames, ANameWithoutAReadableTimeHasNone) {
    FakeClock clock;
    for (const char* name :
         {"", "sonvia_Sonvia.log", "sonvia_Sonvia_2026-13-09-07-05-02.log", "a_2026-03-09.log",
          "a_2026-03-09-07-05.log", "a_123456789.log", "a_2026-03-09-24-05-02.log"}) {
        EXPECT_FALSE(timeInName(name, clock).has_value()) << name;
    }
}
