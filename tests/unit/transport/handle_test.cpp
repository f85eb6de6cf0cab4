#include "transport/handle.h"

#include "platform/thread_id.h"
#include "support/transport/fake_handle.h"
#include "support/transport/transport_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace support;

namespace {

using Steps = std::vector<std::string>;

TEST(Handle, CloseWithoutALibuvHandleDoesNothing) {
    FakeHandleRecord record;
    FakeHandle handle(nullptr, nullptr, record);
    handle.close();
    EXPECT_EQ(record.steps, Steps({"close"}));
}

TEST(Handle, CloseReleasesTheHandleAndThenReportsOnTheLoopThread) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    auto closed = std::make_shared<Signal>();
    std::uint32_t closedOn = 0;
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [&] {
            closedOn = platform::currentThreadId();
            closed->set();
        };
        loop.run();
        loop.call([&] {
            handle.close();
            EXPECT_EQ(record.steps, Steps({"close"})) << "nothing is released before libuv has closed it";
        });
        EXPECT_TRUE(closed->wait());
        loop.stop();
        EXPECT_EQ(record.steps, Steps({"close", "release", "closed"}));
        EXPECT_EQ(closedOn, loop->threadId.load());
    }
    discardTimer(*loop.loop(), timer);
}

TEST(Handle, CloseOfAHandleThatIsClosingReleasesItAtOnce) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    {
        FakeHandle handle(loop.loop(), timer, record);
        loop.run();
        loop.call([&] {
            handle.close();
            handle.close();
            EXPECT_EQ(record.steps, Steps({"close", "close", "release"}));
        });
        loop.stop();
    }
    discardTimer(*loop.loop(), timer);
}

TEST(Handle, ClosedHandleWhoseOwnerIsGoneIsFreed) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop()); // freed by the close, as the address sanitizer sees
    FakeHandleRecord record;
    auto handle = std::make_unique<FakeHandle>(loop.loop(), timer, record);
    loop.run();
    loop.call([&] {
        handle.reset();
        EXPECT_EQ(timer->data, nullptr);
        EXPECT_NE(uv_is_closing(asHandle(timer)), 0);
    });
    loop.stop();
    EXPECT_EQ(record.count("closed"), 0);
    EXPECT_EQ(record.count("release"), 0);
}

TEST(Handle, DestroyedOnTheLoopThreadWhileItIsClosingIsLeftToLibuv) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop()); // freed by the close
    FakeHandleRecord record;
    auto handle = std::make_unique<FakeHandle>(loop.loop(), timer, record);
    loop.run();
    loop.call([&] {
        handle->close();
        handle.reset();
    });
    loop.stop();
    EXPECT_EQ(record.steps, Steps({"close"}));
}

TEST(Handle, DestroyedOnAnotherThreadIsReleasedWithoutClosing) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    auto handle = std::make_unique<FakeHandle>(loop.loop(), timer, record);
    loop.run();
    handle.reset();
    EXPECT_EQ(record.steps, Steps({"release"}));
    EXPECT_EQ(uv_is_closing(asHandle(timer)), 0);
    loop.call([timer] { timer->data = nullptr; }); // it would lead the shutdown to the owner
    loop.stop();
    discardTimer(*loop.loop(), timer);
}

// Freed without a close, it would still be in libuv's list of handles when the loop ends.
TEST(Handle, DestroyedBeforeTheLoopRanIsClosedAndFreedByTheEndOfTheLoop) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop()); // freed by the close, as the address sanitizer sees
    FakeHandleRecord record;
    std::make_unique<FakeHandle>(loop.loop(), timer, record).reset();
    EXPECT_EQ(record.steps, Steps({"close"}));
    EXPECT_NE(uv_is_closing(asHandle(timer)), 0);
}

TEST(Handle, DestroyedAfterTheLoopStoppedIsReleasedWithoutClosing) {
    LoopThread loop;
    uv_timer_t* timer = newTimer(*loop.loop());
    FakeHandleRecord record;
    auto handle = std::make_unique<FakeHandle>(loop.loop(), timer, record);
    timer->data = nullptr; // so that the shutdown leaves it
    loop.run();
    loop.stop();
    handle.reset();
    EXPECT_EQ(record.steps, Steps({"release"}));
    EXPECT_EQ(uv_is_closing(asHandle(timer)), 0);
    discardTimer(*loop.loop(), timer);
}

TEST(Handle, DestroyedOnTheLoopThreadWhileStoppingIsReleasedWithoutClosing) {
    LoopThread loop;
    uv_timer_t* closedByShutdown = newTimer(*loop.loop());
    uv_timer_t* left = newTimer(*loop.loop());
    FakeHandleRecord record;
    FakeHandleRecord leftRecord;
    {
        auto leftHandle = std::make_unique<FakeHandle>(loop.loop(), left, leftRecord);
        left->data = nullptr;
        FakeHandle handle(loop.loop(), closedByShutdown, record);
        handle.whenClosed = [&] {
            EXPECT_EQ(loop->runState.load(), OUVLoop::kStopping);
            leftHandle.reset();
        };
        loop.run();
        loop.stop();
        EXPECT_EQ(leftHandle, nullptr);
    }
    EXPECT_EQ(leftRecord.steps, Steps({"release"}));
    EXPECT_EQ(uv_is_closing(asHandle(left)), 0);
    discardTimer(*loop.loop(), left);
    discardTimer(*loop.loop(), closedByShutdown);
}

TEST(Handle, DestroyedWithoutALoopIsReleased) {
    FakeHandleRecord record;
    std::make_unique<FakeHandle>(nullptr, nullptr, record).reset();
    EXPECT_EQ(record.steps, Steps({"release"}));
}

TEST(Handle, DestroyedOnTheLoopThreadWithoutALibuvHandleDoesNothing) {
    LoopThread loop;
    loop.run();
    FakeHandleRecord record;
    loop.call([&] { std::make_unique<FakeHandle>(loop.loop(), nullptr, record).reset(); });
    EXPECT_TRUE(record.steps.empty());
}

TEST(Handle, KeepsItsLoopAlive) {
    std::shared_ptr<OUVLoop> loop(new OUVLoop);
    const std::weak_ptr<OUVLoop> watch = loop;
    FakeHandleRecord record;
    auto handle = std::make_unique<FakeHandle>(std::move(loop), nullptr, record);
    EXPECT_FALSE(watch.expired());
    handle.reset();
    EXPECT_TRUE(watch.expired());
}

} // namespace
