#include "log/manager.h"

#include "platform/processor.h"

#include <mutex>
#include <string_view>

namespace orvel::log4z {

namespace {

/// While nothing comes the files are flushed and looked after so often, in milliseconds.
constexpr unsigned kIdleSleep = 50;

/// Just after a burst the writer rests this long, in milliseconds, and until so many records wait: a caller that logs
/// line after line must not pay for waking it each time. Fewer than the pool holds, so that the pool is not used up.
constexpr unsigned kRest = 2;
constexpr std::size_t kEnoughToWake = 96;

/// A batch of this size is part of a burst.
constexpr std::size_t kBurst = 16;

/// Records go back to the pool so many at a time.
constexpr std::size_t kHandful = 48;

/// A record is fetched from its caller's processor this many turns before it is written.
constexpr std::size_t kAhead = 4;

void fetchRecord(const LogRecord* record) {
    platform::fetchToRead(record);
    platform::fetchToRead(record->content + 64);
    platform::fetchToRead(record->content + 128);
}

/// Adds to a counter that only the writer thread changes.
void add(std::atomic<std::uint64_t>& counter, std::uint64_t value) {
    counter.store(counter.load(std::memory_order_relaxed) + value, std::memory_order_relaxed);
}

} // namespace

void LogerManager::run() {
    mRunning.store(true, std::memory_order_release);
    mStarted->post();
    loadHistories();
    mLastConfigCheck = mClock.now().seconds;
    std::vector<LogRecord*> batch;
    for (;;) {
        mQueue.takeAll(batch);
        if (!batch.empty()) {
            const bool isBurst = batch.size() >= kBurst;
            writeBatch(batch);
            if (isBurst) {
                mQueue.spinForRecords(kEnoughToWake);
            }
            continue;
        }
        if (!waitForWork()) {
            endThread();
            return;
        }
    }
}

/// The queue is empty: flushes and sleeps. False when the thread is to end.
bool LogerManager::waitForWork() {
    flushFiles();
    if (!isRunning() && mQueue.closeIfEmpty()) {
        return false;
    }
    if (mWasBusy) {
        mWasBusy = false;
        mQueue.waitForRecords(kEnoughToWake, kRest);
    } else {
        mPool.endBurst();
        mQueue.waitForRecords(1, kIdleSleep);
    }
    checkConfig();
    return true;
}

void LogerManager::writeBatch(std::vector<LogRecord*>& batch) {
    mWasBusy = true;
    std::size_t returned = 0;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (i + kAhead < batch.size()) {
            fetchRecord(batch[i + kAhead]);
        }
        const LogRecord& record = *batch[i];
        if (record.type != kChangeNone) {
            applyRecord(record);
        } else {
            writeLine(record);
        }
        mQueue.countTaken();
        if (i + 1 - returned == kHandful) {
            mPool.put(batch.data() + returned, kHandful);
            returned += kHandful;
        }
    }
    mPool.put(batch.data() + returned, batch.size() - returned);
    batch.clear();
    if (mFlushWanted.load(std::memory_order_acquire)) {
        flushFiles();
    }
}

void LogerManager::applyRecord(const LogRecord& record) {
    LoggerSlot& slot = mSlots[record.loggerId];
    {
        const std::lock_guard<LockHelper> guard(mSlotLock);
        apply(slot, static_cast<SettingChange>(record.type), record.typeValue,
              std::string_view(record.content, static_cast<std::size_t>(record.contentLength)));
    }
    slot.file.close(); // the next line opens it with the new setting
    if (record.type == kChangeHistory) {
        loadHistories();
    }
}

void LogerManager::writeLine(const LogRecord& record) {
    add(mRecordsPopped, 1);
    LoggerSlot& slot = mSlots[record.loggerId];
    if (!slot.enable.load(std::memory_order_relaxed) ||
        record.level < slot.level.load(std::memory_order_relaxed)) {
        return;
    }
    if (slot.display) {
        mConsole.show(record.level, record.content);
    }
    if (slot.outfile) {
        if (!openLogger(record)) {
            slot.file.loseLines(1);
            return;
        }
        slot.file.write(record.content, static_cast<std::size_t>(record.contentLength));
    } else if (slot.openFailed) {
        slot.file.loseLines(1);
    }
    add(mLinesWritten, 1);
    add(mBytesWritten, static_cast<std::uint64_t>(record.contentLength));
}

/// Makes sure that the file which the record's line goes to is open.
bool LogerManager::openLogger(const LogRecord& record) {
    if (!isValid(record.loggerId)) {
        mConsole.report("log openLogger can not open, invalide logger id! \r\n");
        return false;
    }
    LoggerSlot& slot = mSlots[record.loggerId];
    return slot.enable.load(std::memory_order_relaxed) && slot.outfile &&
           record.level >= slot.level.load(std::memory_order_relaxed) && mRotation.openFor(slot, record.time);
}

void LogerManager::flushFiles() {
    mFlushWanted.store(false, std::memory_order_relaxed);
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        LoggerSlot& slot = mSlots[id];
        slot.file.flush();
        if (!slot.enable.load(std::memory_order_relaxed)) {
            slot.file.close();
        }
    }
    mFlushedUpTo.store(mQueue.taken(), std::memory_order_release);
}

void LogerManager::endThread() {
    const std::lock_guard<LockHelper> guard(mSlotLock);
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        mSlots[id].file.close();
        mSlots[id].enable.store(false);
    }
}

bool LogerManager::loadHistory() {
    if (pushChange(0, kChangeHistory, 0, {})) {
        return true;
    }
    const std::lock_guard<LockHelper> guard(mSlotLock);
    if (!pushChange(0, kChangeHistory, 0, {})) {
        loadHistories();
    }
    return true;
}

void LogerManager::loadHistories() {
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        LoggerSlot& slot = mSlots[id];
        if (slot.enable.load() && !slot.path.empty()) {
            slot.file.close();
            mRotation.loadHistory(id, slot);
        }
    }
}

void LogerManager::checkConfig() {
    const std::uint32_t interval = mConfigInterval.load(std::memory_order_relaxed);
    if (interval == 0) {
        return;
    }
    const std::int64_t now = mClock.now().seconds;
    if (now - mLastConfigCheck > interval || now < mLastConfigCheck) {
        updateConfig();
        mLastConfigCheck = now;
    }
}

} // namespace orvel::log4z
