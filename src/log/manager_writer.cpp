#include "log/manager.h"

#include "platform/processor.h"
#include "platform/thread_block.h"
#include "platform/thread_id.h"
#include "platform/thread_name.h"

#include <cstdio>
#include <mutex>
#include <new>
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

/// Does what may be done twice; memory that was refused is often there a moment later. False when it was not.
template <typename Action>
bool withMemory(Action action) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            action();
            return true;
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
    return false;
}

} // namespace

void LogerManager::run() {
    platform::nameThisThread("Sonvia log");
    platform::threadBlock(); // now: this thread's own lines come when memory has run out
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
    if (mStopping.load(std::memory_order_acquire) && mQueue.closeIfEmpty()) {
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
        handle(*batch[i]);
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

/// An allocation failure costs the line, which is counted, or the setting, which is reported on the console.
void LogerManager::handle(const LogRecord& record) {
    if (record.type == kChangeNone) {
        try {
            writeLine(record);
        } catch (const std::bad_alloc&) {
            countRefusedLine(record.loggerId);
        }
    } else if (!withMemory([&] { applyRecord(record); })) {
        mConsole.print("log: no memory for setting %d of logger %d! \r\n", record.type, record.loggerId);
    }
}

void LogerManager::applyRecord(const LogRecord& record) {
    LoggerSlot& slot = mSlots[record.loggerId];
    slot.file.close(); // the next line opens it with the new setting
    {
        const std::lock_guard<LockHelper> guard(mSlotLock);
        apply(slot, static_cast<SettingChange>(record.type), record.typeValue,
              std::string_view(record.content, static_cast<std::size_t>(record.contentLength)));
    }
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
        tellLosses(record.loggerId);
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

/// Says in the log how many lines it has lost, once it takes lines again.
void LogerManager::tellLosses(int id) {
    LoggerSlot& slot = mSlots[id];
    const std::uint64_t lost = slot.linesLost();
    if (lost == slot.lossesTold || !slot.file.takesLines() || kLevelWarn < slot.level.load()) {
        return;
    }
    char line[1024];
    static_assert(sizeof line > LinePrefix::kMaxLength + 200);
    const int prefix = mPrefix.write(line, mClock.now(), platform::currentThreadId(), kLevelWarn);
    const int text = std::snprintf(line + prefix, sizeof line - static_cast<std::size_t>(prefix),
                                   "Sonvia_Default: [%s:%d]lines lost:%llu in all:%llu\r\n",
                                   "orvel::log4z::LogerManager::tellLosses", __LINE__,
                                   static_cast<unsigned long long>(lost - slot.lossesTold),
                                   static_cast<unsigned long long>(lost));
    slot.lossesTold = lost;
    if (slot.display) {
        mConsole.show(kLevelWarn, line);
    }
    slot.file.writeNote(line, static_cast<std::size_t>(prefix) + static_cast<std::size_t>(text));
}

void LogerManager::flushFiles() {
    mFlushWanted.store(false, std::memory_order_relaxed);
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        LoggerSlot& slot = mSlots[id];
        slot.file.flush();
        tellLosses(id);
        slot.file.flush();
        if (!slot.enable.load(std::memory_order_relaxed)) {
            slot.file.close();
        }
    }
    mFlushedUpTo.store(mQueue.taken(), std::memory_order_release);
}

void LogerManager::endThread() {
    mRunning.store(false, std::memory_order_release);
    const std::lock_guard<LockHelper> guard(mSlotLock);
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        mSlots[id].file.close();
        mSlots[id].enable.store(false);
    }
}

bool LogerManager::loadHistory() {
    try {
        if (!pushChange(0, kChangeHistory, 0, {})) {
            const std::lock_guard<LockHelper> guard(mSlotLock);
            if (!pushChange(0, kChangeHistory, 0, {})) {
                loadHistories();
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void LogerManager::loadHistories() {
    const int last = mLastId.load(std::memory_order_acquire);
    for (int id = 0; id <= last; ++id) {
        LoggerSlot& slot = mSlots[id];
        if (slot.enable.load() && !slot.path.empty()) {
            slot.file.close();
            if (!withMemory([&] { mRotation.loadHistory(id, slot); })) {
                mConsole.print("log: no memory for the history of logger %d! \r\n", id);
            }
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
