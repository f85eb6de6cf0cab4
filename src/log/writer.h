#pragma once

#include "log/configuration.h"
#include "log/file_services.h"
#include "log/flush_requests.h"
#include "log/line_prefix.h"
#include "log/log_record.h"
#include "log/record_pool.h"
#include "log/record_queue.h"
#include "log/registry.h"
#include "log/sync_helpers.h"
#include "log/thread_helper.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace orvel::log4z {

/// What the writer has done. The writer alone counts; any thread reads.
struct WriterCounters {
    std::atomic<std::uint64_t> linesTaken{0};
    std::atomic<std::uint64_t> linesWritten{0};
    std::atomic<std::uint64_t> bytesWritten{0};
};

/// The writer thread: takes records from the queue in batches, shows and writes lines, makes setting changes, and
/// flushes the files whenever the queue is empty. It then sleeps until a record comes.
class LogWriter {
public:
    /// What the writer works with. All of it outlives the writer.
    struct Rooms {
        ThreadHelper& thread; ///< its `run` calls the writer's
        FileServices services;
        const LinePrefix& prefix;
        RecordPool& pool;
        RecordQueue& queue;
        LoggerRegistry& registry;
        LogConfiguration& configuration;
    };

    /// startLimit: how long `start` waits for the thread, ms.
    LogWriter(const Rooms& rooms, unsigned startLimit)
        : mRooms(rooms), mStartLimit(startLimit),
          mFlushRequests(rooms.services.clock, rooms.thread, rooms.queue) {}

    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    /// As the operations of ILog4zManager. Thread: any; one waits for the other.
    bool start();
    bool stop();

    /// Whether the thread has started and takes lines. Thread: any.
    bool isRunning() const { return mIsRunning.load(std::memory_order_acquire); }

    /// As LogerManager's. Thread: any but the writer.
    bool flush(unsigned milliseconds) { return mFlushRequests.wait(milliseconds); }

    const WriterCounters& counters() const { return mCounters; }

    /// The thread's whole life.
    void run();

private:
    void drainWithoutThread();
    bool waitForWork();
    void writeBatch(std::vector<LogRecord*>& batch);
    void handle(const LogRecord& record);
    void writeLine(const LogRecord& record);
    bool writeToFile(LoggerSlot& slot, const LogRecord& record);
    void reportLosses(LoggerSlot& slot);
    void flushFiles();

    const Rooms mRooms;
    const unsigned mStartLimit;
    LockHelper mLifeLock; ///< held by `start` and `stop`; taken before all other locks
    std::unique_ptr<SemHelper> mStarted;
    std::atomic<bool> mIsRunning{false};
    std::atomic<bool> mIsStopping{false};

    /// What changes with every batch stays out of the memory that callers read.
    alignas(64) FlushRequests mFlushRequests;
    WriterCounters mCounters;
    bool mWasBusy = false; ///< records came since the queue was last empty; writer thread
};

} // namespace orvel::log4z
