#pragma once

#include "platform/clock.h"
#include "platform/file_system.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvel::log4z {

/// A log file or an archive that lies in a logger's folder.
struct FoundLog {
    std::string path;
    std::int64_t time = 0; ///< of its name; 0 when times were not asked for
};

/// The log files and archives of a folder and of its sub-folders, one level deep, whose names contain `namePart`.
/// Links are not followed. With a clock, each carries the time in its name, and a file without one is left out.
std::vector<FoundLog> listLogs(platform::FileSystem& files, const std::string& folder,
                               const std::string& namePart, platform::Clock* clock);

/// The version text kept in the folder's version file; empty when there is none.
std::string readVersionFile(platform::FileSystem& files, const std::string& folder);

/// False when the version is not in the file afterwards. A link of the file's name is replaced.
bool writeVersionFile(platform::FileSystem& files, const std::string& folder, const std::string& version);

/// What the version file gives back of a version text: its first 254 bytes without white space at the end.
std::string storedVersion(const std::string& version);

/// Makes a folder with its parents unless it exists.
bool ensureFolder(platform::FileSystem& files, const std::string& folder);

} // namespace orvel::log4z
