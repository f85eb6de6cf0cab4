#include "log/log_names.h"

#include <cctype>
#include <cstdio>

namespace orvel::log4z {

namespace {

/// Matches `text` against a pattern: a letter matches a digit, another character itself.
bool readTime(const char* text, const char* pattern, platform::CalendarTime& time) {
    platform::CalendarTime read{0, 0, 0, 0, 0, 0};
    for (; *pattern != '\0'; ++pattern, ++text) {
        if (*pattern == '-') {
            if (*text != '-') {
                return false;
            }
            continue;
        }
        if (std::isdigit(static_cast<unsigned char>(*text)) == 0) {
            return false;
        }
        int& field = *pattern == 'Y'   ? read.year
                     : *pattern == 'M' ? read.month
                     : *pattern == 'D' ? read.day
                     : *pattern == 'h' ? read.hour
                     : *pattern == 'm' ? read.minute
                                       : read.second;
        field = field * 10 + (*text - '0');
    }
    time = read;
    return read.month >= 1 && read.month <= 12 && read.day >= 1 && read.day <= 31 && read.hour <= 23 &&
           read.minute <= 59 && read.second <= 59;
}

std::optional<platform::CalendarTime> lastTimeIn(const std::string& name, const char* pattern,
                                                 std::size_t length) {
    platform::CalendarTime time;
    for (std::size_t i = name.size() + 1; i-- > 0;) {
        if (name.size() - i >= length && readTime(name.c_str() + i, pattern, time)) {
            return time;
        }
    }
    return std::nullopt;
}

} // namespace

std::string logFileName(const std::string& loggerName, const platform::CalendarTime& time) {
    char text[96];
    std::snprintf(text, sizeof text, "_%04d-%02d-%02d-%02d-%02d-%02d.log", time.year, time.month, time.day,
                  time.hour, time.minute, time.second);
    return loggerName + text;
}

std::string monthFolderName(const platform::CalendarTime& time) {
    char text[32];
    std::snprintf(text, sizeof text, "%04d_%02d/", time.year, time.month);
    return text;
}

std::optional<std::int64_t> timeInName(const std::string& name, platform::Clock& clock) {
    static constexpr char kLong[] = "YYYY-MM-DD-hh-mm-ss";
    static constexpr char kShort[] = "YYYYMMDDhh";
    if (const auto time = lastTimeIn(name, kLong, sizeof kLong - 1)) {
        return clock.fromLocal(*time);
    }
    if (const auto time = lastTimeIn(name, kShort, sizeof kShort - 1)) {
        return clock.fromLocal({time->year, time->month, time->day, 0, 0, 0});
    }
    return std::nullopt;
}

} // namespace orvel::log4z
