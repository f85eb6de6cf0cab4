// What the transport's tests share: a loop on its own thread, work done on that thread, a pipe that records what
// it is given and exposes its insides.
#pragma once

#include "transport/loop.h"
#include "transport/stream_pipe.h"

#include "support/wait.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace support {

/// A one-time event.
class Signal {
public:
    void set() { mPromise.set_value(); }

    testing::AssertionResult wait() {
        return mPromise.get_future().wait_for(kTimeout) == std::future_status::ready
                   ? testing::AssertionSuccess()
                   : timedOut("no signal", kTimeout);
    }

private:
    std::promise<void> mPromise;
};

/// A loop, and a thread that runs it from run() on until the end of this object.
class LoopThread {
public:
    LoopThread() : mLoop(new OUVLoop) {}

    ~LoopThread() { stop(); }

    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    const std::shared_ptr<OUVLoop>& loop() const { return mLoop; }

    OUVLoop* operator->() const { return mLoop.get(); }

    /// Returns when the loop accepts posts.
    void run();
    /// Stops the loop and waits for its thread.
    void stop();
    /// Waits for the thread of a loop that something else stops.
    void join();
    /// Does `work` on the loop thread and waits until it has been done.
    void call(std::function<void()> work);
    /// Keeps the loop thread busy inside a task until the returned signal is set: what is posted meanwhile
    /// comes in one batch.
    std::shared_ptr<Signal> hold();

    bool lastRunResult = false;

private:
    std::shared_ptr<OUVLoop> mLoop;
    std::thread mThread;
};

/// An OStreamPipe that records every report, on whichever thread it comes, and whose fields are open.
class TestPipe : public OStreamPipe {
public:
    using OStreamPipe::OStreamPipe;

    using OBaseSocket::acquireWriteReq;
    using OBaseSocket::activeWriteReqs;
    using OBaseSocket::allocCb;
    using OBaseSocket::eventCallback;
    using OBaseSocket::freeWriteReqs;
    using OBaseSocket::pendingReads;
    using OBaseSocket::readCallback;
    using OBaseSocket::readCb;
    using OBaseSocket::recycle;
    using OBaseSocket::writeCallback;
    using OStreamPipe::connecting;
    using OStreamPipe::connectReq;
    using OStreamPipe::initialized;
    using OStreamPipe::pipe;
};

/// The arguments of a pipe's three callbacks. Outlives the pipe.
class Reports {
public:
    using Event = std::pair<std::int32_t, std::int32_t>; // code and status

    void attachTo(OBaseSocket& socket);

    std::vector<Event> events() const;
    std::string bytes() const;
    std::vector<std::int32_t> writes() const;

    testing::AssertionResult waitForEvent(std::int32_t code) const;
    testing::AssertionResult waitForEvents(std::size_t count) const;
    testing::AssertionResult waitForBytes(std::size_t count) const;
    testing::AssertionResult waitForWrites(std::size_t count) const;
    /// Status of the first event of that code; 1 when there is none.
    std::int32_t statusOf(std::int32_t code) const;

private:
    Monitor mMonitor; // of what follows
    std::vector<Event> mEvents;
    std::string mBytes;
    std::vector<std::int32_t> mWrites;
};

OBufList listOf(const std::string& text);

/// The loops' own lines go nowhere: so it is when the tests start, and so a test leaves it.
void quietLoopLog();

/// Gives OStreamPipe a pipe-name prefix of the test's own, and takes it back.
class PipeTest : public testing::Test {
protected:
    PipeTest();
    ~PipeTest() override;

    std::string prefix;
};

} // namespace support
