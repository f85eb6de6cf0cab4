#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace orvel {

namespace log4z {
class LogerManager;
}

/// The settings that INITLOG applies. Created with these values on first use; nothing in the library changes them.
struct LogInitSettings {
    std::string tag = "Sonvia";
    std::string key = "Sonvia";
    std::string reserveDelType = "size"; ///< a name of reserveDelTypeNames
    /// Kept for compatibility: a switch that nothing reads. Code that sets it would not compile without it.
    bool switchedOn = true;
    std::int64_t reserveTimeSec = 172800;
    std::uint32_t singleSizeMb = 2;
    std::uint32_t totalSizeMb = 5;
    bool isZip = false;
};

/// The process's settings. Thread: any for the first use, the start-up thread afterwards.
LogInitSettings& logInitSettings();

/// The names of writeLog's levels and of the reserve-deletion types.
extern const std::map<std::string, int>& logLevelNames;
extern const std::map<std::string, int>& reserveDelTypeNames;

/// Creates the library's logger and applies the settings, the folder and the level. The manager must not run yet.
/// Returns: the logger's id; -1 when an allocation for the logger, the folder or the version failed, or the path is too
/// long.
int setUpLogger(log4z::LogerManager& manager, const LogInitSettings& settings, const char* path, int level);

} // namespace orvel
