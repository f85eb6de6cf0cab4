#pragma once

#include "platform/file_system.h"

#include <cstdint>
#include <string>

namespace orvel::log4z {

/// Packs a closed log into a zip archive with one member, named after the log. The log is read and the archive
/// written piece by piece: the memory used does not grow with the log.
/// time: of the member, seconds since 1970. The log stays as it is. Returns false when the archive is not whole (it
/// could not be opened, read, or written to the end and through to the medium); what there is of it is left for the caller
/// to remove.
bool writeArchive(platform::FileSystem& files, const std::string& logPath, const std::string& archivePath,
                  std::int64_t time);

/// Whether the writing of an archive was broken off. An archive that cannot be read to its end counts as whole: what
/// nobody has looked at may be all that is left of a log.
bool isTornArchive(platform::FileSystem& files, const std::string& archivePath);

} // namespace orvel::log4z
