#pragma once

#include "platform/clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvel::log4z {

/// "<logger>_YYYY-MM-DD-hh-mm-ss.log"
std::string logFileName(const std::string& loggerName, const platform::CalendarTime& time);

/// What an archive's name has behind the name of the log it holds.
inline constexpr char kArchiveEnding[] = ".zip";

/// "YYYY_MM/", the folder of a month's files within the logger's.
std::string monthFolderName(const platform::CalendarTime& time);

/// The time in a log file's or an archive's name: the last "YYYY-MM-DD-hh-mm-ss" in it; failing that the last
/// "YYYYMMDDhh", which stands for that day's midnight. Nothing when the name holds neither.
std::optional<std::int64_t> timeInName(const std::string& name, platform::Clock& clock);

} // namespace orvel::log4z
