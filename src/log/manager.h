#pragma once

#include "log/configuration.h"
#include "log/console.h"
#include "log/ilog4z_manager.h"
#include "log/line_prefix.h"
#include "log/log_system.h"
#include "log/record_pool.h"
#include "log/record_queue.h"
#include "log/registry.h"
#include "log/thread_helper.h"
#include "log/writer.h"

#include <cstdint>
#include <string_view>

namespace orvel::log4z {

/// The logging engine: callers fill records and push them, one writer thread shows them and writes them to files. This
/// class is the face; the loggers are in the registry, the thread is the writer's.
///
/// Locks: the pool's, the queue's, the console's and that of flush requests are taken last, one at a time. Before them
/// come, in this order, the writer's (start and stop), the configuration's and the registry's.
class LogerManager final : public ThreadHelper, public ILog4zManager {
public:
    /// The process's own engine. It is never destroyed: its thread may run until the process ends, and a destructor
    /// that waited for it would hang the host under the loader lock.
    static LogerManager& instance();

    explicit LogerManager(const LogSystem& system);
    ~LogerManager() override;

    bool config(const char* configFile) override { return mConfiguration.load(configFile); }

    bool configFromText(const char* text) override { return mConfiguration.applyText(text); }

    int createLogger(const char* key) override { return mRegistry.create(key); }

    bool start() override { return mWriter.start(); }

    bool stop() override { return mWriter.stop(); }

    int findLogger(const char* key) override { return mRegistry.find(key); }

    bool wouldLog(int id, int level) override;
    bool pushLog(LogRecord* record, const char* file, int line) override;

    bool enableLogger(int id, bool enable) override { return change(id, kChangeEnable, enable); }

    bool setLoggerName(int id, const char* name) override { return changeText(id, kChangeName, name); }

    bool setLoggerPath(int id, const char* path) override {
        return path == nullptr ? mRegistry.isValid(id) : change(id, kChangePath, 0, path);
    }

    bool setLoggerVersion(int id, const char* version) override {
        return changeText(id, kChangeVersion, version);
    }

    bool setLoggerLevel(int id, int level) override { return change(id, kChangeLevel, level); }

    bool setLoggerFileLine(int id, bool fileline) override { return change(id, kChangeFileLine, fileline); }

    bool setLoggerDisplay(int id, bool display) override { return change(id, kChangeDisplay, display); }

    bool setLoggerOutFile(int id, bool outfile) override { return change(id, kChangeOutFile, outfile); }

    bool setLoggerLimitsize(int id, std::uint32_t megabytes) override {
        return change(id, kChangeLimitSize, megabytes);
    }

    bool setLoggerTotalsize(int id, std::uint32_t megabytes) override {
        return change(id, kChangeTotalSize, megabytes);
    }

    bool setLoggerMonthdir(int id, bool monthdir) override { return change(id, kChangeMonthdir, monthdir); }

    bool setLoggerReserveTime(int id, std::int64_t seconds) override {
        return change(id, kChangeReserveTime, seconds);
    }

    bool setLoggerZip(int id, bool isZip) override { return change(id, kChangeZip, isZip); }

    bool setLoggerReserveDelType(int id, std::int32_t type) override {
        return change(id, kChangeReserveDelType, type);
    }

    bool setConfigCheckInterval(std::uint32_t seconds) override;

    bool updateConfig() override { return mConfiguration.update(); }

    bool isLoggerEnabled(int id) override;

    std::uint64_t totalLinesWritten() override {
        return mWriter.counters().linesWritten.load(std::memory_order_relaxed);
    }

    std::uint64_t totalBytesWritten() override {
        return mWriter.counters().bytesWritten.load(std::memory_order_relaxed);
    }

    std::uint64_t totalRecordsPushed() override { return mQueue.linesPushed(); }

    std::uint64_t totalRecordsPopped() override {
        return mWriter.counters().linesTaken.load(std::memory_order_relaxed);
    }

    std::uint32_t activeLoggerCount() override { return mRegistry.enabledCount(); }

    LogRecord* makeRecord(int id, int level) override;
    void freeRecord(LogRecord* record) override;

    bool loadHistory() override { return mRegistry.reloadHistories(); }

    /// Writes one line, unless the logger refuses it. Does what `wouldLog`, `makeRecord` and `pushLog` do one after the
    /// other, but judges the level once. tag: null for an empty one.
    /// Thread: any. Blocks: as `wouldLog`. On failure: the line is lost, and counted.
    void writeLine(int id, int level, const char* tag, std::string_view message);

    /// Changes any setting, also one that has no operation of its own. Thread: any. Returns: as the setters.
    bool change(int id, SettingChange code, std::int64_t number, std::string_view text = {}) {
        return mRegistry.change(id, code, number, text);
    }

    /// Counts lines for a file that are in none: it could not be opened or did not take them, or an allocation failed.
    /// Those that came after the writer had given the file up, or were in its buffer, also count as written. The log
    /// itself reports losses as soon as it takes lines again. Thread: any.
    std::uint64_t totalLinesLost() const { return mRegistry.linesLost(); }

    /// Whether the writer thread has started and takes lines. Thread: any.
    bool isRunning() const { return mWriter.isRunning(); }

    /// Waits until every record pushed before the call is written and handed to the system.
    /// Thread: any but the writer. Blocks: up to `milliseconds`.
    /// Returns: false when it took longer, or when the writer thread has ended.
    bool flush(unsigned milliseconds) { return mWriter.flush(milliseconds); }

    /// A logger's slot, for tests. While the manager runs it is the writer thread's.
    const LoggerSlot& slot(int id) const { return mRegistry.slot(id); }

    /// The pooled records, for tests.
    std::size_t pooledRecords() { return mPool.size(); }

protected:
    void run() override { mWriter.run(); }

private:
    bool changeText(int id, SettingChange code, const char* text) {
        return change(id, code, 0, text == nullptr ? "" : text);
    }

    bool accepts(int id, int level) const;
    void holdBack();
    LogRecord* newRecord(int id, int level);
    void countRefusedLine(int id);
    bool push(LogRecord* record);

    platform::Clock& mClock;
    ConsoleEcho mConsole;
    LinePrefix mPrefix;
    RecordPool mPool;
    RecordQueue mQueue;
    LoggerRegistry mRegistry;
    LogConfiguration mConfiguration;
    LogWriter mWriter;
};

} // namespace orvel::log4z
