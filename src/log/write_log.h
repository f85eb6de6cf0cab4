#pragma once

#include "log/printf_format.h"

/// The levels a module logs with. 2 has no name: it is written as INFO and shows "D" on the console.
inline constexpr int kLogDebug = 0;
inline constexpr int kLogInfo = 1;
inline constexpr int kLogWarning = 3;
inline constexpr int kLogError = 4;

/// The tags that name the writing module.
inline constexpr const char* kLogTagDefault = "Sonvia_Default";
inline constexpr const char* kLogTagDll = "SonviaPCAudioDll";
inline constexpr const char* kLogTagSession = "Sonvia_PCAudioMessage";

/// Writes one line to the log, or to the standard output while logging has not been initialised.
/// level: kLogDebug to kLogError; below the threshold the call returns at once. tag: the writing module, null
/// is an empty text. format: printf-style, the message is cut at 4095 characters; neither text is kept.
/// Thread: any, also inside callbacks. Blocks: never, except that a caller may be slowed by up to 100 ms
/// while more than 20000 lines wait to be written. Failures are not reported: the line is lost, nothing else
/// changes.
void writeLog(int level, const char* tag, const char* format, ...) SONVIA_PRINTF_FORMAT(3, 4);
