#pragma once

#include "log/write_log.h"

#include <functional>

/// Takes a formatted line of the loop: level, tag, text. Called on the thread that logs.
using LoopLogSink = std::function<void(int level, const char* tag, const char* text)>;

/// Sets where the loop's lines go; an empty sink sends them to writeLog. Any thread.
void setLoopLogSink(LoopLogSink sink);

/// Formats one line (cut at 511 characters) and hands it to the sink.
void logLoopLine(int level, const char* tag, const char* format, ...) SONVIA_PRINTF_FORMAT(3, 4);
