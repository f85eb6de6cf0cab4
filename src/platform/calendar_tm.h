#pragma once

#include "platform/clock.h"

#include <ctime>

namespace platform {

/// A calendar time from the C library's.
inline CalendarTime calendarTimeOf(const std::tm& local) {
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
}

/// The C library's form of a calendar time; leaves it to the library whether daylight saving is in force.
inline std::tm tmOf(const CalendarTime& local) {
    std::tm time{};
    time.tm_year = local.year - 1900;
    time.tm_mon = local.month - 1;
    time.tm_mday = local.day;
    time.tm_hour = local.hour;
    time.tm_min = local.minute;
    time.tm_sec = local.second;
    time.tm_isdst = -1;
    return time;
}

} // namespace platform
