#pragma once

#include "log/manager.h"

#include <atomic>
#include <string>
#include <string_view>

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

/// Files or prints a formatted message, which ends in a zero byte. The threshold is looked at once more and the
/// initialised flag only now, since both may have changed while the message was formatted.
void deliverMessage(int level, const char* tag, std::string_view message);

} // namespace orvel
