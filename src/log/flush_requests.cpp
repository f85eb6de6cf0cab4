#include "log/flush_requests.h"

#include <mutex>

namespace orvel::log4z {

bool FlushRequests::wait(unsigned milliseconds) {
    const std::uint64_t wanted = mQueue.pushed();
    const std::uint64_t end = mClock.steadyMilliseconds() + milliseconds;
    while (!isDone(wanted)) {
        const std::uint64_t now = mClock.steadyMilliseconds();
        if (now > end || mThread.threadHasEnded()) {
            return isDone(wanted);
        }
        if (!announce(wanted)) {
            return true;
        }
        mQueue.wake();
        if (!waitForRelease(static_cast<unsigned>(end - now))) {
            return isDone(wanted);
        }
    }
    return true;
}

/// Enters a caller that waits; false when its records are in the files by now.
bool FlushRequests::announce(std::uint64_t records) {
    const std::lock_guard guard(mLock);
    if (isDone(records)) {
        return false;
    }
    ++mWaiting;
    mAreWaiting.store(true, std::memory_order_release);
    return true;
}

/// Returns when the writer has flushed, whatever it has flushed; false when the time is over.
bool FlushRequests::waitForRelease(unsigned milliseconds) {
    if (mReleased.wait(milliseconds)) {
        return true;
    }
    const std::lock_guard guard(mLock);
    if (mWaiting > 0) {
        --mWaiting;
        return false;
    }
    return mReleased.wait(0); // everybody is released, this caller since its timeout
}

void FlushRequests::release(std::uint64_t records) {
    const std::lock_guard guard(mLock);
    mFlushed.store(records, std::memory_order_release);
    mAreWaiting.store(false, std::memory_order_relaxed);
    for (; mWaiting > 0; --mWaiting) {
        mReleased.post();
    }
}

} // namespace orvel::log4z
