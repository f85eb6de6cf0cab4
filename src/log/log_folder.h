#pragma once

#include "log/logger_settings.h"
#include "platform/clock.h"
#include "platform/file_system.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvel::log4z {

/// A log file or an archive in a logger's folder.
struct FoundLog {
    std::string path;
    std::int64_t time = 0; ///< read from its name; 0 when no clock was given
};

/// Lists the log files and archives whose names contain `namePart` in a folder and its sub-folders, one level deep.
/// Links are not followed. With a clock, each entry has the time in its name, and a file without one is left out.
std::vector<FoundLog> listLogs(platform::FileSystem& files, const std::string& folder,
                               const std::string& namePart, platform::Clock* clock);

/// Reads the folder's version file; empty when there is none.
std::string readVersionFile(platform::FileSystem& files, const std::string& folder);

/// Writes the folder's version file; a link of that name is replaced. False when the version is not in the file
/// afterwards.
bool writeVersionFile(platform::FileSystem& files, const std::string& folder, const std::string& version);

/// What the version file keeps of a version text: its first 254 bytes without white space at the end.
std::string storedVersion(const std::string& version);

/// Makes a folder with its parents unless it exists.
bool ensureFolder(platform::FileSystem& files, const std::string& folder);

/// Whether a folder, with or without a separator at its end, is a link.
bool isFolderLink(platform::FileSystem& files, std::string folder);

/// Whether the system refuses the paths of a logger's files because they are too long.
bool isPathTooLong(platform::FileSystem& files, const LoggerSettings& settings);

} // namespace orvel::log4z
