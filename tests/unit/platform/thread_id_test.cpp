#include "platform/thread_id.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(ThreadId, IsTheSameOnAThreadAndAnotherOnAnother) {
    const std::uint32_t own = platform::currentThreadId();
    EXPECT_NE(own, 0U) << "0 stands for no thread";
    EXPECT_EQ(platform::currentThreadId(), own);
    std::uint32_t other = 0;
    std::thread([&] { other = platform::currentThreadId(); }).join();
    EXPECT_NE(other, 0U);
    EXPECT_NE(other, own);
}

} // namespace
