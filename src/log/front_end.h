#pragma once

#include "log/manager.h"

#include <atomic>
#include <string>
#include <string_view>

namespace orvel {

/// What writeLog reads in every call and INITLOG writes once. Initialised at compile time: lines are written before
/// static objects are constructed and after they are destroyed.
struct LogFrontEnd {
    std::atomic<int> threshold{0};
    std::atomic<bool> initialised{false};
    std::atomic<log4z::LogerManager*> manager{nullptr};
    std::atomic<int> loggerId{-1};
    std::string* tag = nullptr; ///< the settings' tag
};

extern LogFrontEnd logFrontEnd;

/// The manager's level for a level of writeLog.
///
/// Kept for compatibility: 2 and unknown numbers are written as INFO and print "D". With another mapping such lines would
/// change their word in the file or their letter on the console.
int managerLevel(int level);

/// The letter that stands for a level on the console.
const char* consoleLetter(int level);

/// Writes a formatted message, which ends in a zero byte, to the log or the standard output. Reads the threshold once
/// more, and the initialised flag only now: both may have changed while the message was formatted.
void deliverMessage(int level, const char* tag, std::string_view message);

} // namespace orvel
