#pragma once

#include "log/manager.h"

#include <atomic>
#include <cstdarg>

namespace orvel {

/// What writeLog reads with every call and INITLOG writes once. Initialised by the compiler: lines are written before
/// and after static objects live.
struct LogFrontEnd {
    std::atomic<int> threshold{0};
    std::atomic<bool> initialised{false};
    std::atomic<log4z::LogerManager*> manager{nullptr};
    std::atomic<int> loggerId{-1};
    std::string* tag = nullptr; ///< the settings' tag
};

extern LogFrontEnd logFrontEnd;

/// The manager's level for a level of writeLog.
int managerLevel(int level);

/// The letter that stands for a level on the console.
const char* consoleLetter(int level);

/// Appends "tag: message" to a record's text. A message is cut at 4095 characters; a record that overflows is marked
/// full.
void appendMessage(log4z::LogRecord& record, const char* tag, const char* format, va_list arguments);

} // namespace orvel
