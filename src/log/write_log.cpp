#include "log/write_log.h"

#include "platform/thread_id.h"

#include <cstdarg>
#include <cstdio>

namespace {

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

void writeLogArguments(int level, const char* tag, const char* format, va_list arguments) {
    char message[4096] = {};
    std::vsnprintf(message, sizeof message, format, arguments);
    std::printf("[%lu] %s %s: %s\n", static_cast<unsigned long>(platform::currentThreadId()),
                consoleLetter(level), tag == nullptr ? "" : tag, message);
    std::fflush(stdout);
}

} // namespace

void writeLog(int level, const char* tag, const char* format, ...) {
    if (level < kLogDebug) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    writeLogArguments(level, tag, format, arguments);
    va_end(arguments);
}
