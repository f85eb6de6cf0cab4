#pragma once

#include "log/log_record.h"
#include "log/sync_helpers.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace orvel::log4z {

/// Records that wait for their next use, so that a line costs no allocation. Thread: any, for every operation.
class RecordPool {
public:
    /// More than these are given back to the heap.
    static constexpr std::size_t kLimit = 200;

    RecordPool() = default;

    ~RecordPool() { clear(); }

    RecordPool(const RecordPool&) = delete;
    RecordPool& operator=(const RecordPool&) = delete;

    /// A record of the pool, or a new one; null when there is no memory for that. The caller owns it until it is put back. What it holds is left over from
    /// its last use. Blocks: never; in a long burst another thread may have its turn when the
    /// pool is empty.
    LogRecord* take();

    void put(LogRecord* record) { put(&record, 1); }

    /// Puts a handful back under one lock.
    void put(LogRecord* const* records, std::size_t count);

    /// Nobody writes at present: what comes next is another burst.
    void endBurst() { mNewInBurst.store(0, std::memory_order_relaxed); }

    /// Frees every pooled record.
    void clear();

    std::size_t size();

private:
    LogRecord* takeFree();

    LockHelper mLock;
    std::atomic<std::uint32_t> mNewInBurst{0}; ///< records that the heap has made since the last rest
    std::size_t mCount = 0;
    LogRecord* mFree[kLimit] = {};
};

} // namespace orvel::log4z
