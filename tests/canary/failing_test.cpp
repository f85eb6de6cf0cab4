#include <gtest/gtest.h>

TEST(Canary, FailedExpectationShowsInTheExitCode) {
    EXPECT_EQ(1 + 1, 3);
}
