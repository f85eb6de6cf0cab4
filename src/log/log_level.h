#pragma once

namespace orvel::log4z {

/// The manager's levels. Lines have them as five-letter words; writeLog's numbers are others.
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
