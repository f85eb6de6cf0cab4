#pragma once

#include "log/history.h"
#include "log/log_file.h"
#include "log/log_level.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace orvel::log4z {

inline constexpr int LOGGER_MAX = 20;

/// One logger: its settings, and the file it writes.
///
/// While the manager runs, the writer thread alone changes a slot. Callers read the three atomic settings; everything
/// else is the writer's own.
struct LoggerSlot {
    std::string key;
    std::string name; ///< begins the names of its files
    std::string path = "./sonvialog/";
    std::string version;
    std::atomic<int> level{kLevelDebug};
    bool display = true;
    bool outfile = true;
    bool openFailed =
        false; ///< outfile is off because a file could not be opened, and not because it was set so
    bool monthdir = false;
    std::uint32_t limitSizeMb = 2;
    std::uint32_t totalSizeMb = 5;
    std::atomic<bool> enable{false};
    std::atomic<bool> fileline{true};
    std::atomic<std::uint64_t> linesRefused{0}; ///< there was no memory for them; callers count these
    std::int64_t reserveSeconds = 0;
    bool isZip = false;
    ReserveDelType reserveDelType = kReserveBySizeOrTime;

    /// What changes with every line stays out of the memory that callers read.
    alignas(64) LogFile file;
    std::int64_t openTime = 0; ///< the time of the line that opened the file
    std::int64_t openDay = 0;  ///< the local midnight before it
    bool openedFull = false;   ///< it was over its limit when it was opened: no other name was left
    History history;
    bool newestIsUncounted =
        false; ///< the newest entry of the history is the file opened last, not weighed yet

    std::uint64_t lossesTold = 0; ///< so many lost lines the log itself has told of

    /// Lines that were to go to a file and did not. Thread: any.
    std::uint64_t linesLost() const {
        return file.linesLost() + linesRefused.load(std::memory_order_relaxed);
    }

    Retention retention() const { return {reserveDelType, limitSizeMb, totalSizeMb, reserveSeconds}; }
};

} // namespace orvel::log4z
