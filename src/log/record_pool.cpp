#include "log/record_pool.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>

namespace orvel::log4z {

LogRecord* RecordPool::take() {
    {
        const std::lock_guard<LockHelper> guard(mLock);
        if (mCount > 0) {
            return mFree[--mCount]; // the last one used: its first lines are the likeliest to be in a cache
        }
    }
    void* block = ::operator new(sizeof(LogRecord));
    std::memset(block, 0, 40);
    return static_cast<LogRecord*>(block);
}

void RecordPool::put(LogRecord* const* records, std::size_t count) {
    std::size_t kept = 0;
    {
        const std::lock_guard<LockHelper> guard(mLock);
        kept = std::min(count, kLimit - mCount);
        std::copy_n(records, kept, mFree + mCount);
        mCount += kept;
    }
    for (std::size_t i = kept; i < count; ++i) {
        ::operator delete(records[i]);
    }
}

void RecordPool::clear() {
    const std::lock_guard<LockHelper> guard(mLock);
    while (mCount > 0) {
        ::operator delete(mFree[--mCount]);
    }
}

std::size_t RecordPool::size() {
    const std::lock_guard<LockHelper> guard(mLock);
    return mCount;
}

} // namespace orvel::log4z
