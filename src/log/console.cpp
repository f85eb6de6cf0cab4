#include "log/console.h"

#include "log/log_level.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace orvel::log4z {

namespace {

/// A sum of 1 for blue, 2 for green and 4 for red; 0 for no colour.
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

/// A formatted text. Never throws: a long one is cut when memory for it cannot be allocated.
class Formatted {
public:
    Formatted(const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        const int length = std::vsnprintf(mShort, sizeof mShort, format, arguments);
        if (length >= static_cast<int>(sizeof mShort)) {
            const std::size_t size = static_cast<std::size_t>(length) + 1;
            mLong.reset(static_cast<char*>(std::malloc(size)));
            if (mLong != nullptr) {
                std::vsnprintf(mLong.get(), size, format, again);
            }
        } else if (length < 0) {
            mShort[0] = '\0';
        }
        va_end(again);
    }

    const char* text() const { return mLong != nullptr ? mLong.get() : mShort; }

private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }
    };

    char mShort[512];
    std::unique_ptr<char, Free> mLong;
};

} // namespace

void ConsoleEcho::show(int level, const char* text) {
    const unsigned attribute = attributeOf(level);
    if (attribute == 0) {
        mConsole.print(text);
        return;
    }
    const std::lock_guard guard(mLock);
    mConsole.printColoured(attribute, text);
}

void ConsoleEcho::print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    mConsole.print(Formatted(format, arguments).text());
    va_end(arguments);
}

void ConsoleEcho::report(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    show(kLevelFatal, Formatted(format, arguments).text());
    va_end(arguments);
}

} // namespace orvel::log4z
