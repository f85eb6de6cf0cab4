#pragma once

#include "log/console.h"
#include "log/logger_slot.h"
#include "platform/clock.h"
#include "platform/file_system.h"

#include <cstdint>
#include <string>

namespace orvel::log4z {

/// Decides which file a logger's line goes to: closes full files and those of another day, opens the next, packs what
/// was closed and deletes the oldest. Writer thread only.
///
///     name_2026-03-01-09-00-00.log   being written; over its limit or past midnight it is closed,
///     name_2026-03-01-08-12-44.log   joins the history (with zip: as .log.zip, when that is smaller),
///     name_2026-02-28-17-30-05.log   and while the history is over its limits
///     name_2026-02-28-09-00-00.log   the oldest of it is deleted
class Rotation {
public:
    Rotation(platform::Clock& clock, platform::FileSystem& files, ConsoleEcho& console)
        : mClock(clock), mFiles(files), mConsole(console) {}

    /// Makes sure that the file for a line of that time is open. False when it is not; after a failed opening the
    /// logger writes no file until outfile is set again.
    bool openFor(LoggerSlot& slot, std::int64_t lineTime);

    /// Reads a logger's history from its folder, or clears the folder when the version has changed.
    void loadHistory(int id, LoggerSlot& slot);

private:
    const char* prepareFolder(const LoggerSlot& slot, const std::string& folder);
    void giveUp(LoggerSlot& slot, const std::string& path, const char* obstacle);
    bool isTooLong(const LoggerSlot& slot);
    bool isLink(std::string folder);
    bool isBehindLink(const LoggerSlot& slot, const std::string& path);
    bool fileTakes(const LoggerSlot& slot, std::int64_t lineTime) const;
    bool isOfTheFilesDay(const LoggerSlot& slot, std::int64_t lineTime) const;
    void settleNewest(LoggerSlot& slot);
    std::string chooseName(const LoggerSlot& slot, const std::string& folder) const;
    bool isTaken(const LoggerSlot& slot, const std::string& path) const;
    void deleteOldFiles(LoggerSlot& slot, const std::string& current);
    bool removeLog(const LoggerSlot& slot, const std::string& path);
    void archiveNewest(LoggerSlot& slot);
    bool versionChanged(LoggerSlot& slot);
    void readFolder(LoggerSlot& slot);

    std::uint64_t sizeOf(const std::string& path) const { return mFiles.size(path).value_or(0); }

    platform::Clock& mClock;
    platform::FileSystem& mFiles;
    ConsoleEcho& mConsole;
};

} // namespace orvel::log4z
