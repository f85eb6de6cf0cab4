#include "log/record_queue.h"

#include "platform/processor.h"

#include <algorithm>
#include <mutex>

namespace orvel::log4z {

unsigned nextRandom() {
    static std::atomic<std::uint32_t> count{1};
    std::uint32_t mixed = count.fetch_add(1, std::memory_order_relaxed) * 2654435761U;
    mixed ^= mixed >> 16;
    mixed *= 2246822519U;
    return mixed ^ mixed >> 13;
}

unsigned backPressureDelay(std::uint64_t waiting) {
    if (waiting <= kBackPressureFrom) {
        return 0;
    }
    return static_cast<unsigned>(
        std::min<std::uint64_t>((waiting - kBackPressureFrom) * 100 / kBackPressureFrom, 100));
}

bool RecordQueue::push(LogRecord* record, bool isLine) {
    bool wakeWriter = false;
    {
        const std::lock_guard guard(mLock);
        if (!mOpen) {
            return false;
        }
        mRecords.push_back(record);
        mPushed.store(mPushed.load(std::memory_order_relaxed) + 1, std::memory_order_release);
        if (isLine) {
            mLinesPushed.store(mLinesPushed.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
        if (mWakeAt != 0 && mRecords.size() >= mWakeAt) {
            mWakeAt = 0;
            wakeWriter = true;
        }
    }
    if (wakeWriter) {
        mEvent->signal();
    }
    return true;
}

bool RecordQueue::isLongerThan(std::uint64_t limit, std::uint64_t& waiting) {
    const std::uint64_t pushedNow = mPushed.load(std::memory_order_relaxed);
    if (pushedNow - mTakenBound.load(std::memory_order_relaxed) <= limit) {
        return false;
    }
    const std::uint64_t takenNow = mTaken.load(std::memory_order_relaxed);
    mTakenBound.store(takenNow, std::memory_order_relaxed);
    // The writer may have taken records that were pushed after pushedNow was read.
    waiting = pushedNow > takenNow ? pushedNow - takenNow : 0;
    return waiting > limit;
}

std::uint64_t RecordQueue::waitingNow() {
    const std::lock_guard guard(mLock);
    return mPushed.load(std::memory_order_relaxed) - mTaken.load(std::memory_order_relaxed);
}

void RecordQueue::takeAll(std::vector<LogRecord*>& batch) {
    const std::lock_guard guard(mLock);
    mRecords.swap(batch);
}

void RecordQueue::waitForRecords(std::size_t enough, unsigned milliseconds) {
    {
        const std::lock_guard guard(mLock);
        if (mRecords.size() >= enough) {
            return;
        }
        mWakeAt = enough;
    }
    mEvent->wait(milliseconds);
    const std::lock_guard guard(mLock);
    mWakeAt = 0;
}

void RecordQueue::spinForRecords(std::size_t enough) {
    constexpr int kLooks = 12;
    constexpr int kPauses = 64; // between two looks: each takes the counter's cache line from the callers
    const std::uint64_t wanted = mTaken.load(std::memory_order_relaxed) + enough;
    std::uint64_t seen = mPushed.load(std::memory_order_relaxed);
    for (int look = 0; look < kLooks && seen < wanted; ++look) {
        for (int pause = 0; pause < kPauses; ++pause) {
            platform::spinPause();
        }
        const std::uint64_t before = seen;
        seen = mPushed.load(std::memory_order_relaxed);
        if (seen == before) {
            return; // nobody pushes: the burst is over, or the caller waits for this very processor
        }
    }
}

bool RecordQueue::closeIfEmpty() {
    const std::lock_guard guard(mLock);
    mOpen = !mRecords.empty();
    return !mOpen;
}

void RecordQueue::open() {
    const std::lock_guard guard(mLock);
    mOpen = true;
}

bool RecordQueue::isOpen() {
    const std::lock_guard guard(mLock);
    return mOpen;
}

} // namespace orvel::log4z
