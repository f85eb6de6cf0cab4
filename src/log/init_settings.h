#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace orvel {

namespace log4z {
class LogerManager;
}

/// What INITLOG sets up. Made with these values on first use; nothing in the library changes them.
struct LogInitSettings {
    std::string tag = "Sonvia";
    std::string key = "Sonvia";
    std::string reserveDelType = "size"; ///< a name of reserveDelTypeNames
    bool switchedOn = true;              ///< part of the settings, read by nobody
    std::int64_t reserveTimeSec = 172800;
    std::uint32_t singleSizeMb = 2;
    std::uint32_t totalSizeMb = 5;
    bool isZip = false;
};

/// The process's settings. Thread: any for the first use, the start-up thread afterwards.
LogInitSettings& logInitSettings();

/// The names that settings use for levels of writeLog and for ways to choose old files.
extern const std::map<std::string, int>& logLevelNames;
extern const std::map<std::string, int>& reserveDelTypeNames;

/// Makes the library's logger and gives it the settings, the folder and the level; returns its id; -1 when
/// there is no memory for the logger, the folder or the version, or the folder's path is too long. The manager must not
/// run yet.
int setUpLogger(log4z::LogerManager& manager, const LogInitSettings& settings, const char* path, int level);

} // namespace orvel
