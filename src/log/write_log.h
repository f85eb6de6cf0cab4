#pragma once

#include "log/printf_format.h"

/// The levels of a line. 2 has no name: it is written as INFO and prints "D" on the console.
inline constexpr int kLogDebug = 0;
inline constexpr int kLogInfo = 1;
inline constexpr int kLogWarning = 3;
inline constexpr int kLogError = 4;

/// The tags, each the name of a module.
inline constexpr const char* kLogTagDefault = "Sonvia_Default";
inline constexpr const char* kLogTagDll = "SonviaPCAudioDll";
inline constexpr const char* kLogTagSession = "Sonvia_PCAudioMessage";

/// Writes one line to the log, or to the standard output until logging has been initialised.
/// level: kLogDebug to kLogError; below the threshold the call returns at once. tag: the module; null for an empty one.
/// format: printf-style; the message is cut at 4095 characters. Neither text is kept.
/// Thread: any, also inside callbacks. Blocks: up to 100 ms while more than 20000 lines wait to be written, otherwise
/// never. On failure: the line is lost, and nothing is reported to the caller.
void writeLog(int level, const char* tag, const char* format, ...) SONVIA_PRINTF_FORMAT(3, 4);
