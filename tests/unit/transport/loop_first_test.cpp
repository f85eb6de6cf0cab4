// A program of its own: libuv changes settings of the process when it makes its first loop, once.
#include "transport/loop.h"

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <stdlib.h>
#include <windows.h>
#else
#include <csignal>
#endif

namespace {

// Several at once: a loop must not take for the host's what another loop has just changed.
void makeFirstLoops() {
    constexpr int kThreads = 8;
    std::latch together(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&together] {
            together.arrive_and_wait();
            std::shared_ptr<OUVLoop>(new OUVLoop).reset();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

#ifdef _WIN32

void hostsOwnHandler(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int, uintptr_t) {}

TEST(FirstLoop, ErrorModeAndHandlersStayTheHosts) {
    SetErrorMode(SEM_NOALIGNMENTFAULTEXCEPT); // GoogleTest has set its own
    const UINT mode = GetErrorMode();
    _set_invalid_parameter_handler(hostsOwnHandler);
    makeFirstLoops();
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(_get_invalid_parameter_handler(), &hostsOwnHandler);
}

#else

TEST(FirstLoop, SignalHandlersStayTheHosts) {
    std::vector<struct sigaction> before(32);
    std::vector<struct sigaction> after(32);
    for (int number = 1; number < 32; ++number) {
        sigaction(number, nullptr, &before[static_cast<std::size_t>(number)]);
    }
    makeFirstLoops();
    for (int number = 1; number < 32; ++number) {
        const auto index = static_cast<std::size_t>(number);
        sigaction(number, nullptr, &after[index]);
        EXPECT_EQ(after[index].sa_handler, before[index].sa_handler) << number;
    }
}

#endif

} // namespace
