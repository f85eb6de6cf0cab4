#include "log/record_pool.h"

#include "platform/processor.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace orvel::log4z {

namespace {

/// A record is prefetched this many takes before its own, so that it has come from the writer's processor by then.
constexpr std::size_t kTakesAhead = 3;

/// A burst may take so many records from the heap at full speed. After that, callers yield to the writer when the pool
/// is empty, so that a lasting stream neither uses up memory nor meets the back-pressure.
constexpr std::uint32_t kNewRecordsInBurst = 4096;

/// The part of a record that a line of common length uses.
void prefetchUsedPart(const LogRecord* record) {
    constexpr std::size_t kCacheLine = 64;
    constexpr std::size_t kUsed = 256;
    for (std::size_t at = 0; at < kUsed; at += kCacheLine) {
        platform::prefetchForWrite(reinterpret_cast<const char*>(record) + at);
    }
}

LogRecord* newRecord() {
    try {
        return static_cast<LogRecord*>(::operator new(sizeof(LogRecord)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace

LogRecord* RecordPool::take() {
    LogRecord* record = takeFree();
    if (record == nullptr && mNewInBurst.load(std::memory_order_relaxed) > kNewRecordsInBurst) {
        // The writer has fallen behind, most likely because it has no processor. Once it runs it returns records sooner
        // than the heap provides new ones, whose memory is touched for the first time.
        std::this_thread::yield();
        record = takeFree();
    }
    if (record == nullptr) {
        record = newRecord();
        if (record == nullptr) {
            return nullptr;
        }
        mNewInBurst.fetch_add(1, std::memory_order_relaxed);
        std::memset(static_cast<void*>(record), 0, 40);
    }
    return record;
}

LogRecord* RecordPool::takeFree() {
    const std::lock_guard guard(mLock);
    if (mCount == 0) {
        return nullptr;
    }
    if (mCount > kTakesAhead) {
        prefetchUsedPart(mFree[mCount - 1 - kTakesAhead]);
    }
    return mFree[--mCount];
}

void RecordPool::put(LogRecord* const* records, std::size_t count) {
    std::size_t kept = 0;
    {
        const std::lock_guard guard(mLock);
        kept = std::min(count, kLimit - mCount);
        std::copy_n(records, kept, mFree + mCount);
        mCount += kept;
    }
    for (std::size_t i = kept; i < count; ++i) {
        ::operator delete(records[i]);
    }
}

void RecordPool::clear() {
    const std::lock_guard guard(mLock);
    while (mCount > 0) {
        ::operator delete(mFree[--mCount]);
    }
}

std::size_t RecordPool::size() {
    const std::lock_guard guard(mLock);
    return mCount;
}

} // namespace orvel::log4z
