#pragma once

#include "log/console.h"
#include "log/ilog4z_manager.h"
#include "log/line_prefix.h"
#include "log/logger_slot.h"
#include "log/record_pool.h"
#include "log/record_queue.h"
#include "log/rotation.h"
#include "log/sync_helpers.h"
#include "log/thread_helper.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::log4z {

struct ConfigSection;

/// What the engine asks the system for; a test gives its own.
struct LogSystem {
    platform::Clock& clock;
    platform::FileSystem& files;
    platform::Console& console;
    std::string hostFileName;   ///< the host's executable
    unsigned startLimit = 3000; ///< how long `start` waits for the writer thread, ms
    ThreadHelper::Starter startThread = [](platform::Thread& thread, void (*entry)(void*), void* argument) {
        return thread.start(entry, argument);
    };

    static LogSystem real();
};

/// The logging engine: callers fill records and push them, one writer thread takes them to the console and into files.
///
/// The writer thread alone touches files and, while it runs, the loggers' settings; changes reach it as records.
/// Locks: the pool's, the queue's and the console's are leaves. Before them come, in this order, mLifeLock (start and
/// stop), mConfigLock (the configuration's state) and mSlotLock (making loggers, and settings that no writer owns).
class LogerManager final : public ThreadHelper, public ILog4zManager {
public:
    /// The process's own engine. It is never destroyed: its thread may run until the process ends, and a destructor
    /// that waited for it would hang the host under the loader lock.
    static LogerManager& instance();

    explicit LogerManager(const LogSystem& system);
    ~LogerManager() override;

    bool config(const char* configFile) override;
    bool configFromText(const char* text) override;
    int createLogger(const char* key) override;
    bool start() override;
    bool stop() override;
    int findLogger(const char* key) override;
    bool wouldLog(int id, int level) override;
    bool pushLog(LogRecord* record, const char* file, int line) override;
    bool enableLogger(int id, bool enable) override;
    bool setLoggerName(int id, const char* name) override;
    bool setLoggerPath(int id, const char* path) override;
    bool setLoggerVersion(int id, const char* version) override;
    bool setLoggerLevel(int id, int level) override;
    bool setLoggerFileLine(int id, bool fileline) override;
    bool setLoggerDisplay(int id, bool display) override;
    bool setLoggerOutFile(int id, bool outfile) override;
    bool setLoggerLimitsize(int id, std::uint32_t megabytes) override;
    bool setLoggerTotalsize(int id, std::uint32_t megabytes) override;
    bool setLoggerMonthdir(int id, bool monthdir) override;
    bool setLoggerReserveTime(int id, std::int64_t seconds) override;
    bool setLoggerZip(int id, bool isZip) override;
    bool setLoggerReserveDelType(int id, std::int32_t type) override;
    bool setConfigCheckInterval(std::uint32_t seconds) override;
    bool updateConfig() override;
    bool isLoggerEnabled(int id) override;
    std::uint64_t totalLinesWritten() override;
    std::uint64_t totalBytesWritten() override;
    std::uint64_t totalRecordsPushed() override;
    std::uint64_t totalRecordsPopped() override;
    std::uint32_t activeLoggerCount() override;
    LogRecord* makeRecord(int id, int level) override;
    void freeRecord(LogRecord* record) override;
    bool loadHistory() override;

    /// Lines for a file that are in none: it could not be opened or did not take them, or there was no memory for them.
    /// Those that came while the writer had given the file up, or lay in its buffer, are also among the lines written,
    /// which counts what the writer is done with. The log itself says how many were lost as soon as it takes lines
    /// again. Thread: any.
    std::uint64_t totalLinesLost() const;

    /// Whether the writer thread has started and takes lines. Thread: any.
    bool isRunning() const { return mRunning.load(std::memory_order_acquire); }

    /// Waits until every record pushed before the call is written and handed to the system. False when it took longer,
    /// or when the writer thread is gone. Thread: any but the writer. Blocks: that long at most.
    bool flush(unsigned milliseconds);

    /// A logger's slot, for tests. While the manager runs it is the writer thread's.
    const LoggerSlot& slot(int id) const { return mSlots[id]; }

    /// The pooled records, for tests.
    std::size_t pooledRecords() { return mPool.size(); }

protected:
    void run() override;

private:
    bool isValid(int id) const { return id >= 0 && id <= mLastId.load(std::memory_order_acquire); }

    static std::string fullKey(const char* key);

    int findOrMakeLogger(const std::string& key);
    LogRecord* newRecord(int id, int level);
    void countRefusedLine(int id);
    void drainUnstarted();

    // Settings (manager_settings.cpp)
    bool change(int id, SettingChange code, std::int32_t value, std::string_view text);
    /// False when no writer owns the slots: nothing has been done. Throws bad_alloc when there is no memory for it.
    bool pushChange(int id, SettingChange code, std::int32_t value, std::string_view text);
    void apply(LoggerSlot& slot, SettingChange code, std::int32_t value, std::string_view text);
    bool applyConfigText(std::string_view text);
    void applyPair(int id, const std::string& key, const std::string& value);
    bool readConfigFile(std::string& text);

    // The writer thread (manager_writer.cpp)
    bool waitForWork();
    void writeBatch(std::vector<LogRecord*>& batch);
    void handle(const LogRecord& record);
    void tellLosses(int id);
    void applyRecord(const LogRecord& record);
    void writeLine(const LogRecord& record);
    bool openLogger(const LogRecord& record);
    void flushFiles();
    void endThread();
    void loadHistories();
    void checkConfig();

    platform::Clock& mClock;
    platform::FileSystem& mFiles;
    ConsoleEcho mConsole;
    LinePrefix mPrefix;
    Rotation mRotation;

    LoggerSlot mSlots[LOGGER_MAX];
    std::map<std::string, std::uint32_t> mIds;
    std::atomic<int> mLastId{-1};
    std::atomic<bool> mRunning{false};  ///< lines are taken
    std::atomic<bool> mStopping{false}; ///< the writer thread is to end
    const unsigned mStartLimit;
    LockHelper mSlotLock;
    LockHelper mLifeLock;
    std::unique_ptr<SemHelper> mStarted;

    RecordPool mPool;
    RecordQueue mQueue;

    LockHelper mConfigLock;
    std::string mConfigFile;
    bool mHasConfigFile = false;
    std::uint32_t mConfigChecksum = 0;
    std::atomic<std::uint32_t> mConfigInterval{0};
    std::atomic<std::uint32_t> mChangesRefused{0}; ///< setting changes that there was no memory for

    // The writer thread's own; others only read the counters.
    alignas(64) std::atomic<std::uint64_t> mRecordsPopped{0};
    std::atomic<std::uint64_t> mLinesWritten{0};
    std::atomic<std::uint64_t> mBytesWritten{0};
    std::int64_t mLastConfigCheck = 0;
    bool mWasBusy = false; ///< records came since the last time the queue was empty

    // Flushing on request
    alignas(64) std::atomic<bool> mFlushWanted{false};
    std::atomic<std::uint64_t> mFlushedUpTo{0}; ///< so many records are in the files
};

} // namespace orvel::log4z
