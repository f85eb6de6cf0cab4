#include "log/write_log.h"

#include "log/front_end.h"
#include "log/log_level.h"
#include "platform/thread_id.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace orvel {

namespace {

constexpr std::size_t kMessageSize = 4096;

const char* textOf(const char* text) {
    return text == nullptr ? "" : text;
}

/// Formats into `message`. The text ends at the first zero byte, also an embedded one.
std::string_view formatMessage(char (&message)[kMessageSize], const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    if (length < 0) {
        // Something cannot be converted: the text before it is kept. The buffer is cleared only now, which saves the
        // usual line the cost.
        std::memset(message, 0, sizeof message);
        std::vsnprintf(message, sizeof message, format, again);
        message[sizeof message - 1] = '\0';
    }
    va_end(again);
    return message;
}

void printLine(int level, const char* tag, const char* message) {
    std::printf("[%lu] %s %s: %s\n", static_cast<unsigned long>(platform::currentThreadId()),
                consoleLetter(level), textOf(tag), message);
    std::fflush(stdout);
}

/// Separate from writeLog, so that a line below the threshold does not pay for the buffer on the stack.
void writeLogArguments(int level, const char* tag, const char* format, va_list arguments) {
    char message[kMessageSize];
    const std::string_view text = formatMessage(message, format, arguments);
    try {
        deliverMessage(level, tag, text);
    } catch (const std::bad_alloc&) {
        // The line is lost. Must not throw: callers log inside calls of the host, inside callbacks of libuv, and while
        // they handle allocation failures of their own.
    }
}

} // namespace

constinit LogFrontEnd logFrontEnd;

int managerLevel(int level) {
    switch (level) {
    case kLogDebug:
        return log4z::kLevelDebug;
    case kLogWarning:
        return log4z::kLevelWarn;
    case kLogError:
        return log4z::kLevelError;
    default:
        return log4z::kLevelInfo;
    }
}

const char* consoleLetter(int level) {
    static constexpr const char* kLetters[] = {"D", "I", "W", "E"};
    switch (level) {
    case kLogInfo:
        return kLetters[1];
    case kLogWarning:
        return kLetters[2];
    case kLogError:
        return kLetters[3];
    default:
        return kLetters[0];
    }
}

void deliverMessage(int level, const char* tag, std::string_view message) {
    if (level < logFrontEnd.threshold.load(std::memory_order_relaxed)) {
        return; // raised while the message was formatted
    }
    if (logFrontEnd.initialised.load(std::memory_order_acquire)) {
        log4z::LogerManager& manager = *logFrontEnd.manager.load(std::memory_order_relaxed);
        manager.writeLine(logFrontEnd.loggerId.load(std::memory_order_relaxed), managerLevel(level), tag,
                          message);
    } else {
        printLine(level, tag, message.data());
    }
}

} // namespace orvel

void writeLog(int level, const char* tag, const char* format, ...) {
    if (level < orvel::logFrontEnd.threshold.load(std::memory_order_relaxed)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    orvel::writeLogArguments(level, tag, format, arguments);
    va_end(arguments);
}
