#pragma once

#include "log/line_prefix.h"
#include "log/log_record.h"
#include "platform/clock.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace orvel::log4z {

/// How the text of a line is put together: `beginLine`, then `appendMessage` and `appendSource` as needed, then
/// `endLine`. A text that is too long for its record is cut. Thread: any; the record is the caller's.

/// Fills in a record's head and the line's prefix.
void beginLine(LogRecord& record, const LinePrefix& prefix, platform::Moment now, int loggerId, int level);

/// Appends "tag: message". tag: null for an empty one. A message that does not fit marks the record full.
void appendMessage(LogRecord& record, const char* tag, std::string_view message);

/// Appends " file:line", the file without its folder.
void appendSource(LogRecord& record, const char* file, int line);

/// Appends CR LF and a terminator. A text that leaves no room for them is cut to 8189 bytes; a content length out of
/// range counts as the nearest one in range.
void endLine(LogRecord& record);

/// The log's own line about lines that it has lost.
class LossReport {
public:
    /// lost: since the last report; total: since the start.
    LossReport(const LinePrefix& prefix, platform::Moment now, std::uint64_t lost, std::uint64_t total);

    const char* text() const { return mText; } ///< terminated

    std::size_t length() const { return mLength; }

private:
    char mText[LinePrefix::kMaxLength + 200];
    std::size_t mLength;
};

} // namespace orvel::log4z
