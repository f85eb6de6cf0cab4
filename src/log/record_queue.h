#pragma once

#include "log/log_record.h"
#include "log/sync_helpers.h"
#include "platform/auto_reset_event.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace orvel::log4z {

/// How long a caller is held back while that many records wait, in milliseconds: 0 up to kBackPressureFrom records,
/// then rising to 100 at twice as many. It is also the chance, in percent, that a caller is held back at all.
unsigned backPressureDelay(std::uint64_t waiting);

/// Callers may be held back while more records than these wait.
inline constexpr std::uint64_t kBackPressureFrom = 20000;

/// A pseudo-random number, for `heldBackFor`. Thread: any.
unsigned nextRandom();

/// How long this caller is held back, in milliseconds. dice: a pseudo-random number. Before a long sleep the records
/// are counted again, under the lock: the writer may have caught up.
template <typename CountAgain>
unsigned heldBackFor(std::uint64_t waiting, unsigned dice, CountAgain countAgain) {
    const unsigned delay = backPressureDelay(waiting);
    const bool isHeld = dice % 100 < delay && (delay <= 50 || countAgain() > kBackPressureFrom);
    return isHeld ? delay : 0;
}

/// The records between the callers and the writer thread, in the order they were pushed.
///
/// The writer takes all waiting records under one lock, but counts each one as taken when it is done with it, so that
/// the number that waits falls one by one. While few records wait, callers compare with a lower bound of that count and
/// do not touch the writer's cache line.
class RecordQueue {
public:
    /// event: what the writer sleeps on.
    explicit RecordQueue(std::unique_ptr<platform::AutoResetEvent> event = platform::makeAutoResetEvent())
        : mEvent(std::move(event)) {}

    RecordQueue(const RecordQueue&) = delete;
    RecordQueue& operator=(const RecordQueue&) = delete;

    /// Appends a record. Enters the kernel only to wake a sleeping writer. Thread: any.
    /// Returns: false when the queue is closed. On failure, also when it throws bad_alloc: the caller keeps the record.
    bool push(LogRecord* record, bool isLine);

    /// Whether more than `limit` records wait; only then `waiting` is set to their number. Thread: any. Takes no lock.
    bool isLongerThan(std::uint64_t limit, std::uint64_t& waiting);

    /// The number of waiting records, read under the lock. Thread: any.
    std::uint64_t waitingNow();

    /// Lines pushed so far. Thread: any.
    std::uint64_t linesPushed() const { return mLinesPushed.load(std::memory_order_relaxed); }

    /// Records pushed so far, setting changes included. Thread: any.
    std::uint64_t pushed() const { return mPushed.load(std::memory_order_acquire); }

    /// Ends the writer's sleep. Thread: any.
    void wake() { mEvent->signal(); }

    /// Moves all waiting records into `batch`, which must be empty. Writer thread.
    void takeAll(std::vector<LogRecord*>& batch);

    /// The writer is done with one more record. Writer thread.
    void countTaken() { mTaken.store(mTaken.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }

    /// Records the writer is done with.
    std::uint64_t taken() const { return mTaken.load(std::memory_order_relaxed); }

    /// Sleeps until `enough` records wait, `wake` is called or the time is over (platform::kNoTimeout: without limit).
    /// May also return early. Writer thread.
    void waitForRecords(std::size_t enough, unsigned milliseconds);

    /// Spins for `enough` records, about as long as a caller at full speed takes to push them. Writer thread.
    void spinForRecords(std::size_t enough);

    /// Closes the queue if it is empty; false when it is not. Writer thread.
    bool closeIfEmpty();

    /// Opens the queue, as it must be before the first push.
    void open();

    /// Whether there is a writer that will take what is pushed. Thread: any.
    bool isOpen();

private:
    LockHelper mLock;
    std::vector<LogRecord*> mRecords;
    std::size_t mWakeAt = 0; ///< the push that makes it so many wakes the writer; 0 while it is awake
    bool mOpen = false;
    std::atomic<std::uint64_t> mPushed{0};
    std::atomic<std::uint64_t> mLinesPushed{0};
    std::atomic<std::uint64_t> mTakenBound{0}; ///< a lower bound of mTaken, for callers

    alignas(64) std::atomic<std::uint64_t> mTaken{0};
    const std::unique_ptr<platform::AutoResetEvent> mEvent; ///< ends the writer's sleep
};

} // namespace orvel::log4z
