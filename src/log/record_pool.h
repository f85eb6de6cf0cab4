#pragma once

#include "log/log_record.h"
#include "log/sync_helpers.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace orvel::log4z {

/// Records kept for reuse, so that a line costs no allocation. Thread: any, for every operation.
class RecordPool {
public:
    /// Records beyond these go back to the heap.
    static constexpr std::size_t kLimit = 200;

    RecordPool() = default;

    ~RecordPool() { clear(); }

    RecordPool(const RecordPool&) = delete;
    RecordPool& operator=(const RecordPool&) = delete;

    /// Takes a record from the pool, or from the heap when the pool is empty; it still holds what its last use has
    /// left. The caller owns it until it puts it back. Blocks: never, but yields in a long burst when the pool is
    /// empty.
    /// Returns: null on an allocation failure.
    LogRecord* take();

    void put(LogRecord* record) { put(&record, 1); }

    /// Puts several back under one lock.
    void put(LogRecord* const* records, std::size_t count);

    /// The queue is empty: what comes next is another burst.
    void endBurst() { mNewInBurst.store(0, std::memory_order_relaxed); }

    /// Frees every pooled record.
    void clear();

    std::size_t size();

private:
    LogRecord* takeFree();

    LockHelper mLock;
    std::atomic<std::uint32_t> mNewInBurst{0}; ///< records taken from the heap since `endBurst`
    std::size_t mCount = 0;
    LogRecord* mFree[kLimit] = {};
};

} // namespace orvel::log4z
