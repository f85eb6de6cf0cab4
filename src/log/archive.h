#pragma once

#include "platform/file_system.h"

#include <cstdint>
#include <string>

namespace orvel::log4z {

/// Packs a closed log into a zip archive with one member, named after the log. Works piece by piece: the memory used
/// does not grow with the log. time: of the member, seconds since 1970.
/// Returns: false when the archive is incomplete: it could not be opened, read, or written to the end and through to
/// the medium. On failure: the log is unchanged, and what exists of the archive is left for the caller to remove.
bool writeArchive(platform::FileSystem& files, const std::string& logPath, const std::string& archivePath,
                  std::int64_t time);

/// Whether an archive is truncated. One that cannot be read to its end counts as whole: it may be all that is left of a
/// log.
bool isTornArchive(platform::FileSystem& files, const std::string& archivePath);

} // namespace orvel::log4z
