#include "platform/critical_section.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

TEST(CriticalSection, LetsOneThreadInAtATime) {
    platform::CriticalSection section;
    int count = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                const std::lock_guard<platform::CriticalSection> guard(section);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 40000);
}
