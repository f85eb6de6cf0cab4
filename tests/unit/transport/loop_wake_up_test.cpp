// The one call of libuv's that any thread makes while the loop runs, and what is held meanwhile.

#include "support/transport/transport_support.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <mutex>

using namespace support;

namespace {

std::function<void()> beforeWakeUp;

} // namespace

// NOLINTBEGIN(clang-diagnostic-reserved-identifier,readability-identifier-naming): the linker's names
extern "C" int __real_uv_async_send(uv_async_t* async);

extern "C" int __wrap_uv_async_send(uv_async_t* async) {
    if (beforeWakeUp) {
        beforeWakeUp();
    }
    return __real_uv_async_send(async);
}

// NOLINTEND(clang-diagnostic-reserved-identifier,readability-identifier-naming)

TEST(LoopWakeUp, IsSentWithoutTheLockOfTheTasks) {
    LoopThread loop;
    loop.run();
    std::future<void> locked;
    bool wasFree = false;
    beforeWakeUp = [&] {
        locked = std::async(std::launch::async, [&loop] { const std::lock_guard guard(loop->taskMutex); });
        wasFree = locked.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    };
    EXPECT_EQ(loop->post([] {}), 0);
    beforeWakeUp = nullptr;
    EXPECT_TRUE(wasFree);
}
