#pragma once

#include "log/record_queue.h"
#include "log/sync_helpers.h"
#include "log/thread_helper.h"
#include "platform/clock.h"

#include <atomic>
#include <cstdint>

namespace orvel::log4z {

/// Lets callers wait until the writer has handed what they have pushed to the system.
class FlushRequests {
public:
    /// All arguments outlive the requests. thread: the writer's.
    FlushRequests(platform::Clock& clock, const ThreadHelper& thread, RecordQueue& queue)
        : mClock(clock), mThread(thread), mQueue(queue) {}

    /// Waits until every record pushed before the call is in the files.
    /// Thread: any but the writer. Blocks: up to `milliseconds`.
    /// Returns: false when it took longer, or when the writer thread has ended before.
    bool wait(unsigned milliseconds);

    /// Whether somebody waits. Writer thread.
    bool areWaiting() const { return mAreWaiting.load(std::memory_order_acquire); }

    /// The first so many records are in the files: ends all waits. Writer thread.
    void release(std::uint64_t records);

private:
    bool isDone(std::uint64_t records) const { return mFlushed.load(std::memory_order_acquire) >= records; }

    bool announce(std::uint64_t records);
    bool waitForRelease(unsigned milliseconds);

    platform::Clock& mClock;
    const ThreadHelper& mThread;
    RecordQueue& mQueue;
    LockHelper mLock;
    int mWaiting = 0; ///< callers that are not released yet; guarded by mLock
    std::atomic<bool> mAreWaiting{false};
    std::atomic<std::uint64_t> mFlushed{0}; ///< so many records are in the files
    SemHelper mReleased{0, 1 << 30};        ///< one for each caller that is released and has not noticed yet
};

} // namespace orvel::log4z
