#pragma once

#include "platform/clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvel::log4z {

/// "<logger>_YYYY-MM-DD-hh-mm-ss.log"
std::string logFileName(const std::string& loggerName, const platform::CalendarTime& time);

/// What an archive's name appends to the name of its log.
inline constexpr char kArchiveEnding[] = ".zip";

/// "YYYY_MM/", the folder of a month's files within the logger's.
std::string monthFolderName(const platform::CalendarTime& time);

/// The time in the name of a log file or an archive: the last "YYYY-MM-DD-hh-mm-ss"; without one the last "YYYYMMDDhh",
/// which means that day's midnight. Nothing when the name has neither.
std::optional<std::int64_t> timeInName(const std::string& name, platform::Clock& clock);

} // namespace orvel::log4z
