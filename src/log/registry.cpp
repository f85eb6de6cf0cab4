#include "log/registry.h"

#include "log/config_text.h"
#include "platform/path_text.h"

#include <mutex>
#include <new>

namespace orvel::log4z {

namespace {

std::string fullKey(const char* key) {
    return std::string(trimmed(std::string("sonvia_") + key));
}

} // namespace

int LoggerRegistry::create(const char* key) {
    if (key == nullptr) {
        return -1;
    }
    try {
        return findOrMake(fullKey(key));
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

int LoggerRegistry::findOrMake(const std::string& key) {
    const std::lock_guard guard(mLock);
    const auto known = mIds.find(key);
    if (known != mIds.end()) {
        return known->second;
    }
    const int id = mCount.load(std::memory_order_relaxed);
    if (id >= LOGGER_MAX) {
        mServices.console.report(
            "log: CreateLogger can not create|writeover, because loggerid need < LOGGER_MAX! \r\n");
        return -1;
    }
    mSlots[static_cast<std::size_t>(id)].emplace(mServices);
    LoggerSlot& slot = *mSlots[static_cast<std::size_t>(id)];
    slot.key = key;
    slot.settings.name = key;
    mIds[key] = id;
    slot.settings.enable.store(true);
    mCount.store(id + 1, std::memory_order_release); // other threads may look at the slot from now on
    return id;
}

int LoggerRegistry::find(const char* key) {
    if (key == nullptr) {
        return -1;
    }
    try {
        const std::string full = fullKey(key);
        const std::lock_guard guard(mLock);
        const auto known = mIds.find(full);
        return known == mIds.end() ? -1 : known->second;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

bool LoggerRegistry::change(int id, SettingChange code, std::int64_t number, std::string_view text) {
    if (!isValid(id)) {
        return false;
    }
    try {
        std::string folder;
        if (code == kChangePath && !platform::endsInSeparator(text)) {
            folder = text;
            folder += '/';
            text = folder;
        }
        if (text.size() >= LogRecord::kCapacity) {
            return false;
        }
        const std::int32_t stored = changeNumber(code, number);
        pushOrMake(id, code, stored, text, [&] { slot(id).apply(code, stored, text); });
    } catch (const std::bad_alloc&) {
        mChangesRefused.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    return true;
}

bool LoggerRegistry::reloadHistories() {
    try {
        pushOrMake(0, kChangeHistory, 0, {}, [this] { loadHistories(); });
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

/// Queues a change; when there is no writer, makes it here and now. Throws bad_alloc: nothing has changed.
template <typename MakeIt>
void LoggerRegistry::pushOrMake(int id, SettingChange code, std::int32_t number, std::string_view text,
                                MakeIt makeIt) {
    if (pushChange(id, code, number, text)) {
        return;
    }
    const std::lock_guard guard(mLock);
    // `handOver` opens the queue under this lock: the slots may be the writer's by now.
    if (!pushChange(id, code, number, text)) {
        makeIt();
    }
}

/// False when no writer owns the slots: nothing has been done. Throws bad_alloc.
bool LoggerRegistry::pushChange(int id, SettingChange code, std::int32_t number, std::string_view text) {
    // The queue is open until the writer thread ends: a writer that is stopping still owns the slots.
    if (!mQueue.isOpen()) {
        return false;
    }
    LogRecord* const record = mPool.take();
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    record->loggerId = id;
    record->type = code;
    record->typeValue = number;
    record->level = kLevelDebug;
    text.copy(record->content, text.size());
    record->content[text.size()] = '\0';
    record->contentLength = static_cast<std::int32_t>(text.size());
    try {
        if (mQueue.push(record, false)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        mPool.put(record);
        throw;
    }
    mPool.put(record); // the writer has ended since the test above
    return false;
}

void LoggerRegistry::applyRecord(const LogRecord& record) {
    const auto code = static_cast<SettingChange>(record.type);
    if (code == kChangeHistory) {
        loadHistories();
        return;
    }
    LoggerSlot& changed = slot(record.loggerId);
    changed.file.close(); // the next line opens it with the new setting
    const std::lock_guard guard(mLock);
    changed.apply(code, record.typeValue,
                  std::string_view(record.content, static_cast<std::size_t>(record.contentLength)));
}

void LoggerRegistry::loadHistories() {
    const int made = count();
    for (int id = 0; id < made; ++id) {
        LoggerSlot& logger = slot(id);
        if (logger.settings.enable.load() && !logger.settings.path.empty() &&
            !withRetryForMemory([&] { logger.file.loadHistory(id); })) {
            mServices.console.print("log: no memory for the history of logger %d! \r\n", id);
        }
    }
}

void LoggerRegistry::handOver() {
    const std::lock_guard guard(mLock);
    mQueue.open();
}

void LoggerRegistry::closeAll() {
    const std::lock_guard guard(mLock);
    const int made = count();
    for (int id = 0; id < made; ++id) {
        slot(id).file.close();
        slot(id).settings.enable.store(false);
    }
}

void LoggerRegistry::countRefusedLine(int id) {
    if (isValid(id)) {
        slot(id).linesRefused.fetch_add(1, std::memory_order_relaxed);
    }
}

std::uint32_t LoggerRegistry::enabledCount() const {
    const int made = count();
    std::uint32_t enabled = 0;
    for (int id = 0; id < made; ++id) {
        enabled += slot(id).settings.enable.load() ? 1 : 0;
    }
    return enabled;
}

std::uint64_t LoggerRegistry::linesLost() const {
    const int made = count();
    std::uint64_t lost = 0;
    for (int id = 0; id < made; ++id) {
        lost += slot(id).linesLost();
    }
    return lost;
}

} // namespace orvel::log4z
