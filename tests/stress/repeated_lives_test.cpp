// One process, many handles after one another: nothing may be left behind by any of them.
#include "support/process.h"
#include "support/service_fixture.h"

namespace {

// The first lives load what is loaded once: system libraries, thread pools, buffers of the log.
constexpr int kWarmUp = 5;
constexpr int kLives = 50;
constexpr std::size_t kMegabyte = 1024U * 1024U;

class RepeatedLives : public support::ServiceTest {
protected:
    void live() {
        events.reset();
        startAndConfigure(
            "wait packet key KORUInfo\nnotify int buffering-start 1\nnotify string phone-name A\n");
        ASSERT_TRUE(events.waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0)));
        ASSERT_TRUE(api.exitProjection(handle));
        stop();
    }
};

TEST_F(RepeatedLives, LeaveNoHandlesThreadsOrMemoryBehind) {
    for (int i = 0; i < kWarmUp; ++i) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    const support::ProcessSize before = support::ownSize();
    for (int i = 0; i < kLives; ++i) {
        ASSERT_NO_FATAL_FAILURE(live());
    }
    const support::ProcessSize after = support::ownSize();
    // Far less than one of each life; a few may come and go with the system's own threads.
    EXPECT_LE(after.handles, before.handles + 5);
    EXPECT_LE(after.threads, before.threads + 2);
    EXPECT_LT(after.memoryBytes, before.memoryBytes + 8 * kMegabyte);
    RecordProperty("handles", std::to_string(before.handles) + " -> " + std::to_string(after.handles));
    RecordProperty("threads", std::to_string(before.threads) + " -> " + std::to_string(after.threads));
    RecordProperty("memory", std::to_string(before.memoryBytes) + " -> " + std::to_string(after.memoryBytes));
}

} // namespace
