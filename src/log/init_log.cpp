#include "log/init_log.h"

#include "log/front_end.h"
#include "log/log_settings.h"
#include "log/write_log.h"

namespace orvel {

namespace {

constexpr unsigned kFlushLimit = 3000; // ms

} // namespace

void INITLOG(const char* path, int level) {
    const LogInitSettings& settings = logInitSettings();
    const bool wasInitialised = logFrontEnd.initialised.load(std::memory_order_acquire);
    writeLog(kLogWarning, kLogTagDefault,
             "[%s:%d]binit:%d path:%s tag:%s key:%s reserveDelType:%s level:%d reserveTimeSec:%d "
             "singleSizeMb:%d totalSizeMb:%d isZip:%d",
             "orvel::INITLOG", 395, wasInitialised, path == nullptr ? "null" : path, settings.tag.c_str(),
             settings.key.c_str(), settings.reserveDelType.c_str(), level,
             static_cast<int>(settings.reserveTimeSec), static_cast<int>(settings.singleSizeMb),
             static_cast<int>(settings.totalSizeMb), settings.isZip);
    if (wasInitialised) {
        return;
    }
    log4z::LogerManager& manager = log4z::LogerManager::instance();
    logFrontEnd.tag = new std::string(settings.tag); // once, and kept until the process ends
    logFrontEnd.manager.store(&manager, std::memory_order_relaxed);
    logFrontEnd.loggerId.store(setUpLogger(manager, settings, path, level), std::memory_order_relaxed);
    manager.start();
    logFrontEnd.threshold.store(level, std::memory_order_relaxed);
    logFrontEnd.initialised.store(true, std::memory_order_release);
}

bool FLUSHLOG() {
    return !logFrontEnd.initialised.load(std::memory_order_acquire) ||
           logFrontEnd.manager.load(std::memory_order_relaxed)->flush(kFlushLimit);
}

} // namespace orvel
