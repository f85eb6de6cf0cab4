#include "log/config_text.h"
#include "log/manager.h"
#include "platform/path_text.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>

namespace orvel::log4z {

namespace {

std::string_view textOf(const char* text) {
    return text == nullptr ? std::string_view() : text;
}

/// A limit of 0 megabytes means none.
std::int32_t limitValue(std::uint32_t megabytes) {
    return static_cast<std::int32_t>(megabytes == 0 ? kNoLimit : megabytes);
}

ReserveDelType reserveDelTypeOf(std::int32_t value) {
    // Negative numbers are no type either.
    return value >= 4 || value < 0 ? kReserveBySizeOrTime : static_cast<ReserveDelType>(value);
}

} // namespace

bool LogerManager::change(int id, SettingChange code, std::int32_t value, std::string_view text) {
    if (!isValid(id) || text.size() >= LogRecord::kCapacity) {
        return false;
    }
    try {
        if (!pushChange(id, code, value, text)) {
            const std::lock_guard<LockHelper> guard(mSlotLock);
            // start() opens the queue under this lock: what was closed then may be open now, and the slots the writer's.
            if (!pushChange(id, code, value, text)) {
                apply(mSlots[id], code, value, text);
            }
        }
    } catch (const std::bad_alloc&) {
        mChangesRefused.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    return true;
}

bool LogerManager::pushChange(int id, SettingChange code, std::int32_t value, std::string_view text) {
    // Asked of the queue and not of mRunning: a writer that is told to stop owns the slots until it has ended.
    if (!mQueue.isOpen()) {
        return false;
    }
    LogRecord* record = newRecord(id, kLevelDebug);
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    record->type = code;
    record->typeValue = value;
    text.copy(record->content, text.size());
    record->content[text.size()] = '\0';
    record->contentLength = static_cast<std::int32_t>(text.size());
    try {
        if (mQueue.push(record, false)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        freeRecord(record);
        throw;
    }
    freeRecord(record); // the writer thread ended meanwhile
    return false;
}

void LogerManager::apply(LoggerSlot& slot, SettingChange code, std::int32_t value, std::string_view text) {
    switch (code) {
    case kChangeEnable:
        slot.enable.store(value != 0);
        break;
    case kChangeName:
        slot.name = text;
        break;
    case kChangePath:
        slot.path = text;
        break;
    case kChangeLevel:
        slot.level.store(value);
        break;
    case kChangeFileLine:
        slot.fileline.store(value != 0);
        break;
    case kChangeDisplay:
        slot.display = value != 0;
        break;
    case kChangeOutFile:
        slot.outfile = value != 0;
        slot.openFailed = false;
        break;
    case kChangeLimitSize:
        slot.limitSizeMb = static_cast<std::uint32_t>(value);
        break;
    case kChangeTotalSize:
        slot.totalSizeMb = static_cast<std::uint32_t>(value);
        break;
    case kChangeMonthdir:
        slot.monthdir = value != 0;
        break;
    case kChangeReserveTime:
        slot.reserveSeconds = std::max(value, 0);
        break;
    case kChangeZip:
        slot.isZip = value != 0;
        break;
    case kChangeReserveDelType:
        slot.reserveDelType = reserveDelTypeOf(value);
        break;
    case kChangeVersion:
        slot.version = text;
        break;
    case kChangeHistory:
    case kChangeNone:
        break;
    }
}

bool LogerManager::enableLogger(int id, bool enable) {
    return change(id, kChangeEnable, enable, {});
}

bool LogerManager::setLoggerName(int id, const char* name) {
    return change(id, kChangeName, 0, textOf(name));
}

bool LogerManager::setLoggerPath(int id, const char* path) {
    if (path == nullptr) {
        return isValid(id);
    }
    try {
        std::string folder = path;
        if (!platform::endsInSeparator(folder)) {
            folder += '/';
        }
        return change(id, kChangePath, 0, folder);
    } catch (const std::bad_alloc&) {
        mChangesRefused.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
}

bool LogerManager::setLoggerVersion(int id, const char* version) {
    return change(id, kChangeVersion, 0, textOf(version));
}

bool LogerManager::setLoggerLevel(int id, int level) {
    return change(id, kChangeLevel, level, {});
}

bool LogerManager::setLoggerFileLine(int id, bool fileline) {
    return change(id, kChangeFileLine, fileline, {});
}

bool LogerManager::setLoggerDisplay(int id, bool display) {
    return change(id, kChangeDisplay, display, {});
}

bool LogerManager::setLoggerOutFile(int id, bool outfile) {
    return change(id, kChangeOutFile, outfile, {});
}

bool LogerManager::setLoggerLimitsize(int id, std::uint32_t megabytes) {
    return change(id, kChangeLimitSize, limitValue(megabytes), {});
}

bool LogerManager::setLoggerTotalsize(int id, std::uint32_t megabytes) {
    return change(id, kChangeTotalSize, limitValue(megabytes), {});
}

bool LogerManager::setLoggerMonthdir(int id, bool monthdir) {
    return change(id, kChangeMonthdir, monthdir, {});
}

bool LogerManager::setLoggerReserveTime(int id, std::int64_t seconds) {
    // A change carries 32 bits; 68 years are as good as more.
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    return change(id, kChangeReserveTime,
                  static_cast<std::int32_t>(std::clamp<std::int64_t>(seconds, 0, kMost)), {});
}

bool LogerManager::setLoggerZip(int id, bool isZip) {
    return change(id, kChangeZip, isZip, {});
}

bool LogerManager::setLoggerReserveDelType(int id, std::int32_t type) {
    return change(id, kChangeReserveDelType, reserveDelTypeOf(type), {});
}

bool LogerManager::setConfigCheckInterval(std::uint32_t seconds) {
    mConfigInterval.store(seconds);
    return true;
}

bool LogerManager::config(const char* configFile) {
    static constexpr char kFrame[] = " !!! !!! !!! !!!\r\n";
    const char* const file = configFile == nullptr ? "" : configFile;
    std::string text;
    try {
        {
            const std::lock_guard<LockHelper> guard(mConfigLock);
            if (mHasConfigFile) {
                mConsole.print(
                    "%s !!! !!! log4z configure error: too many calls to Config. the old config file=%s,  "
                    "the new config file=%s !!! !!! \r\n%s",
                    kFrame, mConfigFile.c_str(), file, kFrame);
                return false;
            }
            mConfigFile = file;
            mHasConfigFile = true;
        }
        if (readConfigFile(text)) {
            return applyConfigText(text);
        }
    } catch (const std::bad_alloc&) {
        text.clear(); // as a file that cannot be read
    }
    mConsole.print("%s !!! !!! log4z load config file error. filename=%s  !!! !!! \r\n%s", kFrame, file,
                   kFrame);
    return false;
}

bool LogerManager::configFromText(const char* text) {
    bool applied = false;
    try {
        applied = text != nullptr && applyConfigText(text);
    } catch (const std::bad_alloc&) {
        applied = false; // as a text that cannot be read
    }
    if (applied) {
        return true;
    }
    static constexpr char kFrame[] = " !!! !!! !!! !!!\r\n";
    mConsole.print("%s !!! !!! log4z load config file error \r\n%s", kFrame, kFrame);
    return false;
}

bool LogerManager::updateConfig() {
    try {
        std::string text;
        return readConfigFile(text) && applyConfigText(text);
    } catch (const std::bad_alloc&) {
        return false; // the checksum stands: the next call tries again
    }
}

bool LogerManager::readConfigFile(std::string& text) {
    std::string path;
    {
        const std::lock_guard<LockHelper> guard(mConfigLock);
        if (!mHasConfigFile) {
            return false;
        }
        path = mConfigFile;
    }
    const auto file = mFiles.open(path, platform::OpenMode::Read);
    if (file == nullptr) {
        return false;
    }
    char piece[4096];
    for (std::size_t count = 0; (count = file->read(piece, sizeof piece)) > 0;) {
        text.append(piece, count);
    }
    return true;
}

bool LogerManager::applyConfigText(std::string_view text) {
    const std::lock_guard<LockHelper> guard(mConfigLock);
    const std::uint32_t checksum = configChecksum(text);
    if (checksum == mConfigChecksum) {
        return true;
    }
    const ConfigText parsed = parseConfigText(text);
    for (const std::string& warning : parsed.warnings) {
        mConsole.report("%s", warning.c_str());
    }
    const std::uint32_t refusedBefore = mChangesRefused.load(std::memory_order_relaxed);
    bool allMade = true;
    for (const ConfigSection& section : parsed.sections) {
        const int id = createLogger(section.name.c_str());
        allMade = allMade && id >= 0;
        for (const auto& [key, value] : section.pairs) {
            applyPair(id, key, value); // without a logger the setters refuse
        }
    }
    // A setting that there was no memory for is tried again with the next look at the file.
    allMade = allMade && mChangesRefused.load(std::memory_order_relaxed) == refusedBefore;
    if (allMade) {
        mConfigChecksum = checksum;
    }
    return allMade;
}

void LogerManager::applyPair(int id, const std::string& key, const std::string& value) {
    int level = 0;
    std::int64_t number = 0;
    if (key == "path") {
        setLoggerPath(id, value.c_str());
    } else if (key == "name") {
        setLoggerName(id, value.c_str());
    } else if (key == "level" && configLevel(value, level)) {
        setLoggerLevel(id, level);
    } else if (key == "display") {
        setLoggerDisplay(id, configFlag(value));
    } else if (key == "outfile") {
        setLoggerOutFile(id, configFlag(value));
    } else if (key == "monthdir") {
        setLoggerMonthdir(id, configFlag(value));
    } else if (key == "limitsize" && configNumber(value, number) && number >= 0 && number <= kNoLimit) {
        setLoggerLimitsize(id, static_cast<std::uint32_t>(number));
    } else if (key == "fileline") {
        setLoggerFileLine(id, configFlag(value));
    } else if (key == "enable") {
        enableLogger(id, configFlag(value));
    } else if (key == "reserve" && configNumber(value, number)) {
        setLoggerReserveTime(id, number);
    }
}

} // namespace orvel::log4z
