// One process, many handles after one another: none of them may leak anything.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "support/effort.h"
#include "support/process.h"
#include "support/service_fixture.h"

namespace {

// The first lives load what is loaded once: system libraries, thread pools, buffers of the log.
constexpr int kWarmUp = 5;
constexpr std::size_t kMegabyte = 1024U * 1024U;

// There the allocator is valgrind's, which keeps no count, and finds leaks in its own way.
bool underValgrind() {
    return std::getenv("SONVIA_MEMCHECK") != nullptr;
}

// The scale must move before it is trusted to have stood still.
TEST(OwnSize, SeesHandlesThreadsAndMemoryThatAreHeld) {
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    const support::ProcessSize before = support::ownSize();
    std::vector<File> files;
    for (int i = 0; i < 20; ++i) {
        files.emplace_back(std::fopen("held.txt", "a"), std::fclose);
        ASSERT_NE(files.back(), nullptr);
    }
    const std::vector<char> memory(32 * kMegabyte, 'm');
    support::ProcessSize with;
    std::thread([&with] { with = support::ownSize(); }).join();
    EXPECT_GE(with.handles, before.handles + 20);
    EXPECT_GE(with.threads, before.threads + 1);
    if (!underValgrind()) {
        EXPECT_GE(with.memoryBytes, before.memoryBytes + 30 * kMegabyte);
    }
    EXPECT_EQ(memory.back(), 'm');
}

class RepeatedLives : public support::ServiceTest {
protected:
    void live() {
        events.reset();
        startAndConfigure(
            "wait packet key KORUInfo\nnotify int buffering-start 1\nnotify string phone-name A\n");
        ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
        ASSERT_TRUE(api.exitProjection(handle));
        const auto begun = std::chrono::steady_clock::now();
        stop();
        releases.push_back(
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begun));
    }

    std::vector<std::chrono::microseconds> releases;
};

TEST_F(RepeatedLives, LeakNoHandlesThreadsOrMemory) {
    const int lives = support::rounds(45, 495);
    releases.reserve(static_cast<std::size_t>(kWarmUp + lives)); // not to count as growth
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    const support::ProcessSize before = support::ownSize();
    for (int i = 0; i < lives; ++i) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    const support::ProcessSize after = support::ownSize();
    EXPECT_EQ(support::growth(before, after), "");
    support::durations("release times", "orderly service", releases);
    support::tried("sessions after one another", kWarmUp + lives);
    RecordProperty("size", support::sizes(before, after));
}

} // namespace
