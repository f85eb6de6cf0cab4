#pragma once

#include "log/file_services.h"
#include "log/logger_slot.h"
#include "log/record_pool.h"
#include "log/record_queue.h"
#include "log/sync_helpers.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::log4z {

/// The loggers, by id and by key, and the way of a setting change to them.
///
/// While the queue is open the writer thread owns the slots, and changes travel to it as records, in order with the
/// lines. While it is closed a change is made at once, under mLock. Lock order: mLock, then the queue's or the pool's.
class LoggerRegistry {
public:
    /// All arguments outlive the registry. The records of changes come from the pool and go into the queue.
    LoggerRegistry(const FileServices& services, RecordPool& pool, RecordQueue& queue)
        : mServices(services), mPool(pool), mQueue(queue) {}

    LoggerRegistry(const LoggerRegistry&) = delete;
    LoggerRegistry& operator=(const LoggerRegistry&) = delete;

    /// As the operations of ILog4zManager. Thread: any.
    int create(const char* key);
    int find(const char* key);

    /// Thread: any.
    int count() const { return mCount.load(std::memory_order_acquire); }

    bool isValid(int id) const { return id >= 0 && id < count(); }

    /// id: valid. What is not atomic in a slot is for its owner alone. Thread: any.
    LoggerSlot& slot(int id) { return *mSlots[static_cast<std::size_t>(id)]; }

    const LoggerSlot& slot(int id) const { return *mSlots[static_cast<std::size_t>(id)]; }

    /// Changes a setting, or queues the change for the writer. number: of a flag, 0 or 1.
    /// Thread: any.
    /// Returns: false for an invalid id, a text of 8192 bytes or more, and an allocation failure.
    bool change(int id, SettingChange code, std::int64_t number, std::string_view text = {});

    /// Reads the loggers' histories anew, or asks the writer to. False on an allocation failure. Thread: any.
    bool reloadHistories();

    /// Makes the change that a record carries. Throws bad_alloc: the setting is as it was. Writer thread.
    void applyRecord(const LogRecord& record);

    /// Reads the histories of all enabled loggers. Thread: the slots' owner.
    void loadHistories();

    /// Opens the queue: from here on the slots are the writer's.
    void handOver();

    /// The writer is about to end: closes all files and disables all loggers. Writer thread.
    void closeAll();

    /// Counts a line that an allocation failure has cost. Thread: any.
    void countRefusedLine(int id);

    /// Setting changes that an allocation failure has cost. Thread: any.
    std::uint32_t changesRefused() const { return mChangesRefused.load(std::memory_order_relaxed); }

    std::uint32_t enabledCount() const;
    std::uint64_t linesLost() const;

private:
    int findOrMake(const std::string& key);
    bool pushChange(int id, SettingChange code, std::int32_t number, std::string_view text);

    template <typename MakeIt>
    void pushOrMake(int id, SettingChange code, std::int32_t number, std::string_view text, MakeIt makeIt);

    const FileServices mServices;
    RecordPool& mPool;
    RecordQueue& mQueue;
    LockHelper mLock; ///< guards mIds, and the slots while no writer owns them
    std::array<std::optional<LoggerSlot>, LOGGER_MAX> mSlots;
    std::map<std::string, int> mIds;
    std::atomic<int> mCount{0}; ///< so many slots are made
    std::atomic<std::uint32_t> mChangesRefused{0};
};

/// Does what may be done twice. Memory that was refused is often free again a moment later; false when it was not.
template <typename Action>
bool withRetryForMemory(Action action) {
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

} // namespace orvel::log4z
