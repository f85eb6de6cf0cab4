#include "log/record_text.h"

#include "log/log_level.h"
#include "log/logger_settings.h"
#include "platform/path_text.h"
#include "platform/thread_id.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace orvel::log4z {

namespace {

/// Appends as much as the record has room for.
void append(LogRecord& record, std::string_view text) {
    const auto room = static_cast<std::size_t>(LogRecord::kCapacity - record.contentLength);
    const std::size_t count = std::min(room, text.size());
    std::memcpy(record.content + record.contentLength, text.data(), count);
    record.contentLength += static_cast<std::int32_t>(count);
}

void clampLength(LogRecord& record) {
    record.contentLength = std::clamp(record.contentLength, 0, LogRecord::kCapacity);
}

} // namespace

void beginLine(LogRecord& record, const LinePrefix& prefix, platform::Moment now, int loggerId, int level) {
    record.loggerId = loggerId;
    record.type = kChangeNone;
    record.typeValue = 0;
    record.level = level;
    record.time = now.seconds;
    record.precise = now.milliseconds;
    record.threadId = platform::currentThreadId();
    record.contentLength = prefix.write(record.content, now, record.threadId, level);
}

void appendMessage(LogRecord& record, const char* tag, std::string_view message) {
    append(record, tag == nullptr ? "" : tag);
    append(record, ": ");
    append(record, message);
}

void appendSource(LogRecord& record, const char* file, int line) {
    clampLength(record);
    append(record, " ");
    append(record, platform::lastPathComponent(file));
    append(record, ":");
    append(record, std::to_string(line));
}

void endLine(LogRecord& record) {
    clampLength(record);
    record.contentLength = std::min(record.contentLength, LogRecord::kCapacity - 3);
    std::memcpy(record.content + record.contentLength, "\r\n", 3);
    record.contentLength += 2;
}

LossReport::LossReport(const LinePrefix& prefix, platform::Moment now, std::uint64_t lost,
                       std::uint64_t total) {
    // Kept for compatibility: function and line number are fixed texts, so that one search finds the reports of all
    // builds. With the real ones it would miss the reports written before the code was moved.
    static constexpr char kFunction[] = "orvel::log4z::LogerManager::tellLosses";
    static constexpr int kLine = 197;
    const auto prefixLength =
        static_cast<std::size_t>(prefix.write(mText, now, platform::currentThreadId(), kLevelWarn));
    mLength = prefixLength +
              static_cast<std::size_t>(std::snprintf(mText + prefixLength, sizeof mText - prefixLength,
                                                     "Sonvia_Default: [%s:%d]lines lost:%llu in all:%llu\r\n",
                                                     kFunction, kLine, static_cast<unsigned long long>(lost),
                                                     static_cast<unsigned long long>(total)));
}

} // namespace orvel::log4z
