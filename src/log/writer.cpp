#include "log/writer.h"

#include "log/log_level.h"
#include "log/logger_slot.h"
#include "log/record_text.h"
#include "platform/processor.h"
#include "platform/thread_block.h"
#include "platform/thread_name.h"
#include "platform/timeout.h"

#include <mutex>
#include <new>

namespace orvel::log4z {

namespace {

/// Interval between two looks at the clock while the configuration file is watched, ms.
constexpr unsigned kConfigPollInterval = 50;

/// After a burst the writer sleeps this long, in ms, or until so many records wait: a caller that logs line after line
/// must not pay for waking it each time. Fewer than the pool holds, so that the pool is not used up.
constexpr unsigned kSleepAfterBurst = 2;
constexpr std::size_t kWakeThreshold = 96;

/// A batch of this size is part of a burst.
constexpr std::size_t kBurstBatch = 16;

/// Records return to the pool so many at a time.
constexpr std::size_t kReturnBatch = 48;

/// A record is prefetched from its caller's cache this many records before it is written.
constexpr std::size_t kPrefetchDistance = 4;

void prefetchRecord(const LogRecord* record) {
    platform::prefetchForRead(record);
    platform::prefetchForRead(record->content + 64);
    platform::prefetchForRead(record->content + 128);
}

/// Adds to a counter that only the writer thread changes.
void add(std::atomic<std::uint64_t>& counter, std::uint64_t value) {
    counter.store(counter.load(std::memory_order_relaxed) + value, std::memory_order_relaxed);
}

} // namespace

bool LogWriter::start() {
    const std::lock_guard guard(mLifeLock);
    if (isRunning() || !mRooms.thread.threadHasEnded()) {
        mRooms.services.console.report("log already start \r\n");
        return false;
    }
    bool isStarted = false;
    try {
        mStarted = std::make_unique<SemHelper>(0, 64);
        mIsStopping.store(false);
        mRooms.registry.handOver();
        isStarted = mRooms.thread.startThread();
    } catch (const std::bad_alloc&) {
        isStarted = false;
    }
    if (!isStarted) {
        mRooms.services.console.print("log: create log thread error! \r\n");
        drainWithoutThread();
        return false;
    }
    if (!mStarted->wait(mStartLimit)) {
        mRooms.services.console.print("log: the log thread did not start within %u ms! \r\n", mStartLimit);
    }
    return true;
}

/// No writer comes for what was queued while it was to be started: the caller of start stands in for it.
void LogWriter::drainWithoutThread() {
    std::vector<LogRecord*> batch;
    while (!mRooms.queue.closeIfEmpty()) {
        mRooms.queue.takeAll(batch);
        writeBatch(batch);
    }
    flushFiles();
}

bool LogWriter::stop() {
    const std::lock_guard guard(mLifeLock);
    if (!isRunning() && mRooms.thread.threadHasEnded()) {
        return false;
    }
    mRooms.services.console.report("log stopping \r\n");
    mIsStopping.store(true);
    mIsRunning.store(false, std::memory_order_release);
    mRooms.queue.wake();
    mRooms.thread.joinThread();
    mRooms.pool.clear();
    return true;
}

void LogWriter::run() {
    platform::nameThisThread("Sonvia log");
    platform::threadBlock(); // now: this thread's own lines come when memory has run out
    mIsRunning.store(true, std::memory_order_release);
    mStarted->post();
    mRooms.registry.loadHistories();
    mRooms.configuration.startWatching();
    std::vector<LogRecord*> batch;
    for (;;) {
        mRooms.queue.takeAll(batch);
        if (!batch.empty()) {
            const bool isBurst = batch.size() >= kBurstBatch;
            writeBatch(batch);
            if (isBurst) {
                mRooms.queue.spinForRecords(kWakeThreshold);
            }
        } else if (!waitForWork()) {
            break;
        }
    }
    mIsRunning.store(false, std::memory_order_release);
    mRooms.registry.closeAll();
}

/// The queue is empty: flushes, and sleeps until something happens; nothing that is left to do depends on time, unless
/// the configuration file is watched. False when the thread is to end.
bool LogWriter::waitForWork() {
    flushFiles();
    if (mIsStopping.load(std::memory_order_acquire) && mRooms.queue.closeIfEmpty()) {
        return false;
    }
    if (mWasBusy) {
        mWasBusy = false;
        mRooms.queue.waitForRecords(kWakeThreshold, kSleepAfterBurst);
    } else {
        mRooms.pool.endBurst();
        mRooms.queue.waitForRecords(1, mRooms.configuration.isWatched() ? kConfigPollInterval
                                                                        : platform::kNoTimeout);
    }
    mRooms.configuration.checkIfDue();
    return true;
}

void LogWriter::writeBatch(std::vector<LogRecord*>& batch) {
    mWasBusy = true;
    std::size_t returned = 0;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (i + kPrefetchDistance < batch.size()) {
            prefetchRecord(batch[i + kPrefetchDistance]);
        }
        handle(*batch[i]);
        mRooms.queue.countTaken();
        if (i + 1 - returned == kReturnBatch) {
            mRooms.pool.put(batch.data() + returned, kReturnBatch);
            returned += kReturnBatch;
        }
    }
    mRooms.pool.put(batch.data() + returned, batch.size() - returned);
    batch.clear();
    if (mFlushRequests.areWaiting()) {
        flushFiles();
    }
}

/// An allocation failure costs the line, which is counted, or the setting, which is reported on the console.
void LogWriter::handle(const LogRecord& record) {
    if (record.type == kChangeNone) {
        try {
            writeLine(record);
        } catch (const std::bad_alloc&) {
            mRooms.registry.countRefusedLine(record.loggerId);
        }
    } else if (!withRetryForMemory([&] { mRooms.registry.applyRecord(record); })) {
        mRooms.services.console.print("log: no memory for setting %d of logger %d! \r\n", record.type,
                                      record.loggerId);
    }
}

void LogWriter::writeLine(const LogRecord& record) {
    add(mCounters.linesTaken, 1);
    if (!mRooms.registry.isValid(record.loggerId)) {
        // Kept for compatibility: the misspelling is part of the message, and a search for it would miss the right
        // word.
        mRooms.services.console.report("log openLogger can not open, invalide logger id! \r\n");
        return;
    }
    LoggerSlot& slot = mRooms.registry.slot(record.loggerId);
    if (!slot.settings.accepts(record.level)) {
        return; // the settings have changed since the caller asked
    }
    if (slot.settings.display) {
        mRooms.services.console.show(record.level, record.content);
    }
    if (slot.settings.outfile && !writeToFile(slot, record)) {
        return;
    }
    add(mCounters.linesWritten, 1);
    add(mCounters.bytesWritten, static_cast<std::uint64_t>(record.contentLength));
}

/// Returns whether the line counts as written. Those that come after the logger has given up do, as with outfile off.
bool LogWriter::writeToFile(LoggerSlot& slot, const LogRecord& record) {
    if (slot.file.hasGivenUp()) {
        slot.file.loseLine();
        return true;
    }
    if (!slot.file.openFor(record.time)) {
        slot.file.loseLine();
        return false;
    }
    reportLosses(slot);
    slot.file.write(record.content, static_cast<std::size_t>(record.contentLength));
    return true;
}

/// Says in the log how many lines it has lost, once it takes lines again.
void LogWriter::reportLosses(LoggerSlot& slot) {
    const std::uint64_t lost = slot.linesLost();
    if (lost == slot.lossesReported || !slot.file.takesLines() || kLevelWarn < slot.settings.level.load()) {
        return;
    }
    const LossReport report(mRooms.prefix, mRooms.services.clock.now(), lost - slot.lossesReported, lost);
    slot.lossesReported = lost;
    if (slot.settings.display) {
        mRooms.services.console.show(kLevelWarn, report.text());
    }
    slot.file.writeNote(report.text(), report.length());
}

void LogWriter::flushFiles() {
    const std::uint64_t taken = mRooms.queue.taken();
    const int loggers = mRooms.registry.count();
    for (int id = 0; id < loggers; ++id) {
        LoggerSlot& slot = mRooms.registry.slot(id);
        slot.file.flush();
        reportLosses(slot);
        slot.file.flush();
        if (!slot.settings.enable.load(std::memory_order_relaxed)) {
            slot.file.close();
        }
    }
    mFlushRequests.release(taken);
}

} // namespace orvel::log4z
