#include "log/console.h"

#include "log/log_level.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

namespace orvel::log4z {

namespace {

/// 0: without colour. 1 is blue, 2 green, 4 red.
unsigned attributeOf(int level) {
    switch (level) {
    case kLevelInfo:
        return 3;
    case kLevelWarn:
        return 6;
    case kLevelError:
        return 4;
    case kLevelAlarm:
        return 2;
    case kLevelFatal:
        return 5;
    default:
        return 0;
    }
}

std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

void ConsoleEcho::show(int level, const char* text) {
    const unsigned attribute = attributeOf(level);
    if (attribute == 0) {
        mConsole.print(text);
        return;
    }
    const std::lock_guard<LockHelper> guard(mLock);
    mConsole.printColoured(attribute, text);
}

void ConsoleEcho::print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    mConsole.print(formatted(format, arguments).c_str());
    va_end(arguments);
}

void ConsoleEcho::report(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    show(kLevelFatal, formatted(format, arguments).c_str());
    va_end(arguments);
}

} // namespace orvel::log4z
