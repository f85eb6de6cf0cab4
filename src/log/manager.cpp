#include "log/manager.h"

#include "log/record_text.h"
#include "platform/module_name.h"

#include <new>

namespace orvel::log4z {

LogSystem LogSystem::real() {
    return {platform::systemClock(), platform::systemFiles(), platform::systemConsole(),
            platform::hostModuleFileName()};
}

LogerManager& LogerManager::instance() {
    static LogerManager& manager = *new LogerManager(LogSystem::real());
    return manager;
}

LogerManager::LogerManager(const LogSystem& system)
    : ThreadHelper(system.startThread), mClock(system.clock), mConsole(system.console),
      mPrefix(system.clock, system.hostFileName), mQueue(system.makeEvent()),
      mRegistry({system.clock, system.files, mConsole}, mPool, mQueue),
      mConfiguration({system.clock, system.files, mConsole}, mRegistry),
      mWriter(
          {*this, {system.clock, system.files, mConsole}, mPrefix, mPool, mQueue, mRegistry, mConfiguration},
          system.startLimit) {}

LogerManager::~LogerManager() {
    LogerManager::stop();
}

bool LogerManager::accepts(int id, int level) const {
    return mRegistry.isValid(id) && isRunning() && mRegistry.slot(id).settings.accepts(level);
}

/// Slows a caller down while the writer is far behind.
void LogerManager::holdBack() {
    std::uint64_t waiting = 0;
    if (!mQueue.isLongerThan(kBackPressureFrom, waiting)) {
        return;
    }
    if (const unsigned delay = heldBackFor(waiting, nextRandom(), [this] { return mQueue.waitingNow(); })) {
        mClock.sleep(delay);
    }
}

bool LogerManager::wouldLog(int id, int level) {
    if (!accepts(id, level)) {
        return false;
    }
    holdBack();
    return true;
}

bool LogerManager::setConfigCheckInterval(std::uint32_t seconds) {
    mConfiguration.setCheckInterval(seconds);
    mQueue.wake(); // the writer may be asleep without a time limit
    return true;
}

LogRecord* LogerManager::makeRecord(int id, int level) {
    LogRecord* const record = newRecord(id, level);
    if (record == nullptr) {
        countRefusedLine(id);
    }
    return record;
}

/// Wakes the writer, which reports the loss: it sleeps until it is woken.
void LogerManager::countRefusedLine(int id) {
    mRegistry.countRefusedLine(id);
    mQueue.wake();
}

LogRecord* LogerManager::newRecord(int id, int level) {
    const platform::Moment now = mClock.now();
    LogRecord* const record = mPool.take();
    if (record == nullptr) {
        return nullptr;
    }
    try {
        beginLine(*record, mPrefix, now, id, level);
    } catch (const std::bad_alloc&) {
        mPool.put(record);
        return nullptr;
    }
    return record;
}

bool LogerManager::pushLog(LogRecord* record, const char* file, int line) {
    if (record == nullptr) {
        return false;
    }
    const int id = record->loggerId;
    if (!mRegistry.isValid(id) || !isRunning() || !isLoggerEnabled(id)) {
        mPool.put(record);
        // Kept for compatibility: says nothing, but is the only sign of a line that came before the start or after the
        // end, and a search for it would miss a better text.
        mConsole.print("11111111111 \n");
        return false;
    }
    const LoggerSettings& settings = mRegistry.slot(id).settings;
    if (!settings.accepts(record->level)) {
        mPool.put(record);
        return false;
    }
    if (file != nullptr && settings.fileline.load(std::memory_order_relaxed)) {
        appendSource(*record, file, line);
    }
    return push(record);
}

void LogerManager::writeLine(int id, int level, const char* tag, std::string_view message) {
    if (!wouldLog(id, level)) {
        return;
    }
    LogRecord* const record = makeRecord(id, level);
    if (record == nullptr) {
        return;
    }
    appendMessage(*record, tag, message);
    push(record);
}

/// Ends the line and queues it. False when it is lost.
bool LogerManager::push(LogRecord* record) {
    endLine(*record);
    try {
        if (mQueue.push(record, true)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        countRefusedLine(record->loggerId);
        mPool.put(record);
        return false;
    }
    // GCOVR_EXCL_START The writer has ended since the caller asked, a gap of a few nanoseconds.
    mPool.put(record);
    mConsole.print("11111111111 \n");
    return false;
    // GCOVR_EXCL_STOP
}

void LogerManager::freeRecord(LogRecord* record) {
    if (record != nullptr) {
        mPool.put(record);
    }
}

bool LogerManager::isLoggerEnabled(int id) {
    return mRegistry.isValid(id) && mRegistry.slot(id).settings.enable.load(std::memory_order_relaxed);
}

} // namespace orvel::log4z
