#include "platform/thread.h"

#include "platform/semaphore.h"

#include "support/wait.h"

#include <gtest/gtest.h>

TEST(Thread, RunsItsEntryAndReportsItsEnd) {
    platform::Thread thread;
    EXPECT_TRUE(thread.hasEnded()) << "never started";
    thread.join();
    for (int round = 0; round < 2; ++round) {
        platform::Semaphore go(0, 1);
        ASSERT_TRUE(thread.start(
            [](void* semaphore) { static_cast<platform::Semaphore*>(semaphore)->wait(support::kTimeoutMs); },
            &go));
        EXPECT_FALSE(thread.hasEnded());
        go.post();
        thread.join();
        EXPECT_TRUE(thread.hasEnded());
    }
}
