// Must fail, and must say so where everybody sees it, although the output is captured: what was waited for, and below it
// what had been printed before.
#include "support/output_capture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

TEST(Canary, FailureInsideACaptureIsShown) {
    const support::OutputCapture output;
    std::puts("printed before the failure");
    EXPECT_TRUE(support::reaches(
        3, "packets", [] { return 2; }, std::chrono::milliseconds(500)));
}
