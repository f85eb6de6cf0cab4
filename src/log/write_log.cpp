#include "log/write_log.h"

#include "log/front_end.h"
#include "log/log_level.h"
#include "platform/thread_id.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace orvel {

namespace {

constexpr std::size_t kMessageSize = 4096;

const char* textOf(const char* text) {
    return text == nullptr ? "" : text;
}

/// Formats into `message` and returns the length the whole message has, cut or not.
std::size_t formatMessage(char* message, std::size_t size, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(message, size, format, arguments);
    if (length < 0) {
        // Something in it cannot be converted: what comes before that stays. The space was not cleared before, which
        // spares the usual line a few hundred bytes of zeros.
        std::memset(message, 0, size);
        std::vsnprintf(message, size, format, again);
        message[size - 1] = '\0';
    }
    va_end(again);
    return length < 0 ? std::strlen(message) : static_cast<std::size_t>(length);
}

void printLine(int level, const char* tag, const char* format, va_list arguments) {
    char message[kMessageSize];
    formatMessage(message, sizeof message, format, arguments);
    if (level < logFrontEnd.threshold.load(std::memory_order_relaxed)) {
        return; // initialised meanwhile
    }
    std::printf("[%lu] %s %s: %s\n", static_cast<unsigned long>(platform::currentThreadId()),
                consoleLetter(level), textOf(tag), message);
    std::fflush(stdout);
}

void pushLine(int level, const char* tag, const char* format, va_list arguments) {
    log4z::LogerManager& manager = *logFrontEnd.manager.load(std::memory_order_relaxed);
    const int id = logFrontEnd.loggerId.load(std::memory_order_relaxed);
    const int recordLevel = managerLevel(level);
    if (!manager.wouldLog(id, recordLevel)) {
        return;
    }
    log4z::LogRecord* record = manager.makeRecord(id, recordLevel);
    appendMessage(*record, tag, format, arguments);
    manager.pushLog(record, nullptr, 0);
}

void writeLogArguments(int level, const char* tag, const char* format, va_list arguments) {
    if (logFrontEnd.initialised.load(std::memory_order_acquire)) {
        pushLine(level, tag, format, arguments);
    } else {
        printLine(level, tag, format, arguments);
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

void appendMessage(log4z::LogRecord& record, const char* tag, const char* format, va_list arguments) {
    const std::string_view name = textOf(tag);
    const std::size_t room = static_cast<std::size_t>(log4z::LogRecord::kCapacity - record.contentLength);
    char* text = record.content + record.contentLength;
    const std::size_t heading = name.size() + 2;
    if (heading >= room) {
        name.copy(text, room);
        if (name.size() < room) {
            text[name.size()] = ':';
        }
        record.contentLength = log4z::LogRecord::kCapacity;
        return;
    }
    name.copy(text, name.size());
    text[name.size()] = ':';
    text[name.size() + 1] = ' ';
    // Straight into the record: a buffer between would move every line twice.
    const std::size_t space = std::min(kMessageSize, room - heading);
    const std::size_t length =
        std::min(formatMessage(text + heading, space, format, arguments), kMessageSize - 1);
    if (heading + length >= room) {
        record.contentLength = log4z::LogRecord::kCapacity;
    } else {
        record.contentLength += static_cast<std::int32_t>(heading + length);
    }
}

} // namespace orvel

void writeLog(int level, const char* tag, const char* format, ...) {
    if (level < orvel::logFrontEnd.threshold.load(std::memory_order_relaxed)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    try {
        orvel::writeLogArguments(level, tag, format, arguments);
    } catch (const std::bad_alloc&) {
        // The line is lost. Callers log where nothing may be thrown: in a host's call, under a callback of libuv, and
        // while they are coping with a lack of memory themselves.
    }
    va_end(arguments);
}
