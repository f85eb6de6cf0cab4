#pragma once

#include "log/history.h"
#include "log/log_level.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::log4z {

/// Which setting a record changes; 0 in a record that holds a line.
enum SettingChange : std::int32_t {
    kChangeNone = 0,
    kChangeEnable = 1,
    kChangeName = 2,
    kChangePath = 3,
    kChangeLevel = 4,
    kChangeFileLine = 5,
    kChangeDisplay = 6,
    kChangeOutFile = 7,
    kChangeLimitSize = 8,
    kChangeTotalSize = 9,
    kChangeMonthdir = 10,
    kChangeReserveTime = 11,
    kChangeZip = 12,
    kChangeReserveDelType = 13,
    kChangeVersion = 14,
    kChangeHistory = 15, ///< not a setting: the writer thread reads the history anew
};

/// One logger's settings. A new one is a field and a code here, and a case in `set` (with a configuration key: a row of
/// the table beside it); `LogerManager::change` sets it.
///
/// While the writer thread runs, it alone changes them. Callers read the three atomic ones; the rest is the writer's.
struct LoggerSettings {
    std::atomic<int> level{kLevelDebug};
    std::atomic<bool> enable{false};
    std::atomic<bool> fileline{true};
    bool display = true;
    bool outfile = true;
    bool monthdir = false;
    bool isZip = false;
    ReserveDelType reserveDelType = kReserveBySizeOrTime;
    std::uint32_t limitSizeMb = 2;
    std::uint32_t totalSizeMb = 5;
    std::int64_t reserveSeconds = 0;
    std::string name; ///< begins the names of the logger's files
    std::string path = "./sonvialog/";
    std::string version;

    /// The one test of a line's level, on either side of the queue. Thread: any.
    bool accepts(int lineLevel) const {
        return enable.load(std::memory_order_relaxed) && lineLevel >= level.load(std::memory_order_relaxed);
    }

    Retention retention() const { return {reserveDelType, limitSizeMb, totalSizeMb, reserveSeconds}; }

    /// Makes a change. number: as `changeNumber` gives it. Throws bad_alloc, with nothing changed.
    void set(SettingChange code, std::int32_t number, std::string_view text);
};

/// The number that the record of a change carries for the number that a setter was given: numbers out of range become
/// the ones that they stand for.
std::int32_t changeNumber(SettingChange code, std::int64_t number);

/// What a "key=value" of a configuration changes.
struct ConfiguredChange {
    SettingChange code;
    std::int64_t number;
    std::string_view text; ///< part of the value
};

/// key: in lower case. Nothing when there is no such key, or the value cannot be read.
std::optional<ConfiguredChange> changeOfPair(std::string_view key, std::string_view value);

} // namespace orvel::log4z
