#pragma once

#include "log/log_record.h"
#include "log/sync_helpers.h"

#include <cstddef>

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

    /// A record of the pool, or a new one. The caller owns it until it is put back. What it holds is left over from
    /// its last use. Blocks: never; when the pool is empty another thread may have its turn first.
    LogRecord* take();

    void put(LogRecord* record) { put(&record, 1); }

    /// Puts a handful back under one lock.
    void put(LogRecord* const* records, std::size_t count);

    /// Frees every pooled record.
    void clear();

    std::size_t size();

private:
    LogRecord* takeFree();

    LockHelper mLock;
    std::size_t mCount = 0;
    LogRecord* mFree[kLimit];
};

} // namespace orvel::log4z
