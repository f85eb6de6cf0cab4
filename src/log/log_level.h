#pragma once

namespace orvel::log4z {

/// The manager's levels. They go into the lines as five-letter words and are not the numbers that writeLog takes.
enum LogLevel : int {
    kLevelTrace = 0,
    kLevelDebug = 1,
    kLevelInfo = 2,
    kLevelWarn = 3,
    kLevelError = 4,
    kLevelAlarm = 5,
    kLevelFatal = 6,
};

} // namespace orvel::log4z
