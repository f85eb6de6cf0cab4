#include "log/manager.h"

#include "log/config_text.h"
#include "platform/module_name.h"
#include "platform/path_text.h"
#include "platform/processor.h"
#include "platform/thread_id.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <new>

namespace orvel::log4z {

namespace {

/// A few numbers without pattern, for callers of all threads.
unsigned nextRandom() {
    static std::atomic<std::uint32_t> count{1};
    std::uint32_t mixed = count.fetch_add(1, std::memory_order_relaxed) * 2654435761u;
    mixed ^= mixed >> 16;
    mixed *= 2246822519u;
    return mixed ^ mixed >> 13;
}

/// Appends as much as the record has room for.
void append(LogRecord& record, std::string_view text) {
    const std::size_t room = static_cast<std::size_t>(LogRecord::kCapacity - record.contentLength);
    const std::size_t count = std::min(room, text.size());
    std::memcpy(record.content + record.contentLength, text.data(), count);
    record.contentLength += static_cast<std::int32_t>(count);
}

void endLine(LogRecord& record) {
    if (record.contentLength + 3 > LogRecord::kCapacity) {
        record.contentLength = LogRecord::kCapacity - 3;
    }
    std::memcpy(record.content + record.contentLength, "\r\n", 3);
    record.contentLength += 2;
}

} // namespace

LogSystem LogSystem::real() {
    return {platform::systemClock(), platform::systemFiles(), platform::systemConsole(),
            platform::hostModuleFileName()};
}

LogerManager& LogerManager::instance() {
    static LogerManager& manager = *new LogerManager(LogSystem::real());
    return manager;
}

LogerManager::LogerManager(const LogSystem& system)
    : ThreadHelper(system.startThread), mClock(system.clock), mFiles(system.files), mConsole(system.console),
      mPrefix(system.clock, system.hostFileName), mRotation(system.clock, system.files, mConsole),
      mStartLimit(system.startLimit) {}

LogerManager::~LogerManager() {
    LogerManager::stop();
}

std::string LogerManager::fullKey(const char* key) {
    return std::string(trimmed(std::string("sonvia_") + key));
}

int LogerManager::createLogger(const char* key) {
    if (key == nullptr) {
        return -1;
    }
    try {
        return findOrMakeLogger(fullKey(key));
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

int LogerManager::findOrMakeLogger(const std::string& key) {
    const std::lock_guard<LockHelper> guard(mSlotLock);
    const auto known = mIds.find(key);
    if (known != mIds.end()) {
        return static_cast<int>(known->second);
    }
    const int id = mLastId.load(std::memory_order_relaxed) + 1;
    if (id >= LOGGER_MAX) {
        mConsole.report(
            "log: CreateLogger can not create|writeover, because loggerid need < LOGGER_MAX! \r\n");
        return -1;
    }
    LoggerSlot& slot = mSlots[id];
    slot.key = key;
    slot.name = key;
    mIds[key] = static_cast<std::uint32_t>(id);
    slot.enable.store(true);
    mLastId.store(id, std::memory_order_release); // the writer thread may look at the slot from now on
    return id;
}

int LogerManager::findLogger(const char* key) {
    if (key == nullptr) {
        return -1;
    }
    try {
        const std::string full = fullKey(key);
        const std::lock_guard<LockHelper> guard(mSlotLock);
        const auto known = mIds.find(full);
        return known == mIds.end() ? -1 : static_cast<int>(known->second);
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

bool LogerManager::start() {
    const std::lock_guard<LockHelper> guard(mLifeLock);
    if (isRunning() || !threadHasEnded()) {
        mConsole.report("log already start \r\n");
        return false;
    }
    bool isStarted = false;
    try {
        mStarted = std::make_unique<SemHelper>(0, 64);
        mStopping.store(false);
        {
            // Whoever found the queue closed may be changing a slot; from here on they are the writer's.
            const std::lock_guard<LockHelper> slots(mSlotLock);
            mQueue.open();
        }
        isStarted = startThread();
    } catch (const std::bad_alloc&) {
        isStarted = false;
    }
    if (!isStarted) {
        mConsole.print("log: create log thread error! \r\n");
        drainUnstarted();
        return false;
    }
    if (!mStarted->wait(mStartLimit)) {
        mConsole.print("log: the log thread did not start within %u ms! \r\n", mStartLimit);
    }
    return true;
}

/// No writer comes for what was queued while it was to be started: the caller of start stands in for it.
void LogerManager::drainUnstarted() {
    std::vector<LogRecord*> batch;
    while (!mQueue.closeIfEmpty()) {
        mQueue.takeAll(batch);
        writeBatch(batch);
    }
    flushFiles();
}

bool LogerManager::stop() {
    const std::lock_guard<LockHelper> guard(mLifeLock);
    if (!isRunning() && threadHasEnded()) {
        return false;
    }
    mConsole.report("log stopping \r\n");
    mStopping.store(true);
    mRunning.store(false, std::memory_order_release);
    mQueue.wake();
    joinThread();
    mPool.clear();
    return true;
}

bool LogerManager::wouldLog(int id, int level) {
    if (!isValid(id) || !isRunning() || !mSlots[id].enable.load(std::memory_order_relaxed) ||
        level < mSlots[id].level.load(std::memory_order_relaxed)) {
        return false;
    }
    std::uint64_t waiting = 0;
    if (!mQueue.isLongerThan(kBackPressureFrom, waiting)) {
        return true;
    }
    if (const unsigned delay = heldBackFor(waiting, nextRandom(), [this] { return mQueue.waitingNow(); })) {
        mClock.sleep(delay);
    }
    return true;
}

LogRecord* LogerManager::makeRecord(int id, int level) {
    LogRecord* record = newRecord(id, level);
    if (record == nullptr) {
        countRefusedLine(id);
    }
    return record;
}

void LogerManager::countRefusedLine(int id) {
    if (isValid(id)) {
        mSlots[id].linesRefused.fetch_add(1, std::memory_order_relaxed);
    }
}

LogRecord* LogerManager::newRecord(int id, int level) {
    const platform::Moment now = mClock.now();
    LogRecord* record = mPool.take();
    if (record == nullptr) {
        return nullptr;
    }
    record->loggerId = id;
    record->type = kChangeNone;
    record->typeValue = 0;
    record->level = level;
    record->time = now.seconds;
    record->precise = now.milliseconds;
    record->threadId = platform::currentThreadId();
    try {
        record->contentLength = mPrefix.write(record->content, now, record->threadId, level);
    } catch (const std::bad_alloc&) {
        freeRecord(record);
        return nullptr;
    }
    return record;
}

bool LogerManager::pushLog(LogRecord* record, const char* file, int line) {
    if (record == nullptr) {
        return false;
    }
    const int id = record->loggerId;
    if (!isValid(id) || !isRunning() || !mSlots[id].enable.load(std::memory_order_relaxed)) {
        freeRecord(record);
        mConsole.print("11111111111 \n");
        return false;
    }
    if (record->level < mSlots[id].level.load(std::memory_order_relaxed)) {
        freeRecord(record);
        return false;
    }
    record->contentLength = std::clamp(record->contentLength, 0, LogRecord::kCapacity);
    if (file != nullptr && mSlots[id].fileline.load(std::memory_order_relaxed)) {
        append(*record, " ");
        append(*record, platform::lastPathComponent(file));
        append(*record, ":");
        append(*record, std::to_string(line));
    }
    endLine(*record);
    try {
        if (mQueue.push(record, true)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        countRefusedLine(id);
        freeRecord(record);
        return false;
    }
    // The writer thread ended since the test above.
    freeRecord(record);
    mConsole.print("11111111111 \n");
    return false;
}

void LogerManager::freeRecord(LogRecord* record) {
    if (record != nullptr) {
        mPool.put(record);
    }
}

bool LogerManager::isLoggerEnabled(int id) {
    return isValid(id) && mSlots[id].enable.load();
}

std::uint64_t LogerManager::totalLinesWritten() {
    return mLinesWritten.load(std::memory_order_relaxed);
}

std::uint64_t LogerManager::totalBytesWritten() {
    return mBytesWritten.load(std::memory_order_relaxed);
}

std::uint64_t LogerManager::totalRecordsPushed() {
    return mQueue.linesPushed();
}

std::uint64_t LogerManager::totalRecordsPopped() {
    return mRecordsPopped.load(std::memory_order_relaxed);
}

std::uint32_t LogerManager::activeLoggerCount() {
    const int made = mLastId.load(std::memory_order_acquire) + 1;
    return static_cast<std::uint32_t>(
        std::count_if(mSlots, mSlots + made, [](const LoggerSlot& slot) { return slot.enable.load(); }));
}

std::uint64_t LogerManager::totalLinesLost() const {
    std::uint64_t lost = 0;
    for (const LoggerSlot& slot : mSlots) {
        lost += slot.linesLost();
    }
    return lost;
}

bool LogerManager::flush(unsigned milliseconds) {
    // A writer with little to do is done before a sleep would end.
    constexpr unsigned kShortLooks = 2000;
    const std::uint64_t wanted = mQueue.pushed();
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (unsigned look = 0; mFlushedUpTo.load(std::memory_order_acquire) < wanted; ++look) {
        if (threadHasEnded()) {
            return false;
        }
        if (look == 0 || look >= kShortLooks) {
            mFlushWanted.store(true, std::memory_order_release);
            mQueue.wake();
        }
        if (look < kShortLooks) {
            platform::spinPause(); // yielding would give the turn to any other program first
        } else {
            // Asked for the time and not counted in sleeps: one of a millisecond may take the system sixteen.
            if (std::chrono::steady_clock::now() >= giveUp) {
                return false;
            }
            platform::systemClock().sleep(1);
        }
    }
    return true;
}

} // namespace orvel::log4z
