#include "log/init_settings.h"

#include "SonviaPCAudioDll.h"
#include "log/history.h"
#include "log/manager.h"
#include "log/write_log.h"

namespace orvel {

namespace {

/// A new version deletes the logs of the old one.
constexpr char kVersion[] = SONVIA_VERSION_STRING;

} // namespace

// Never destroyed: lines may be written until the process ends.
const std::map<std::string, int>& logLevelNames = *new std::map<std::string, int>{
    {"debug", kLogDebug}, {"info", kLogInfo}, {"warning", kLogWarning}, {"error", kLogError}};

const std::map<std::string, int>& reserveDelTypeNames =
    *new std::map<std::string, int>{{"size", log4z::kReserveBySize},
                                    {"time", log4z::kReserveByTime},
                                    {"size-or-Time", log4z::kReserveBySizeOrTime},
                                    {"size-and-Time", log4z::kReserveBySizeAndTime}};

LogInitSettings& logInitSettings() {
    static LogInitSettings& settings = *new LogInitSettings;
    return settings;
}

int setUpLogger(log4z::LogerManager& manager, const LogInitSettings& settings, const char* path, int level) {
    const int id = manager.createLogger(settings.key.c_str());
    // An unknown name, also one in another letter case, leaves the logger's default.
    const auto type = reserveDelTypeNames.find(settings.reserveDelType);
    if (type != reserveDelTypeNames.end()) {
        manager.setLoggerReserveDelType(id, type->second);
    }
    manager.setLoggerReserveTime(id, settings.reserveTimeSec);
    manager.setLoggerLimitsize(id, settings.singleSizeMb);
    manager.setLoggerTotalsize(id, settings.totalSizeMb);
    manager.setLoggerZip(id, settings.isZip);
    // Unmapped: what writeLog lets through is above it in either numbering.
    manager.setLoggerLevel(id, level);
    // Logs in another folder than the host's, or without a version, would be worse than none.
    if (!manager.setLoggerPath(id, path) || !manager.setLoggerVersion(id, kVersion)) {
        return -1;
    }
    manager.setLoggerMonthdir(id, true);
    manager.setLoggerDisplay(id, true);
    return id;
}

} // namespace orvel
