#include "log/init_log.h"

#include "log/front_end.h"
#include "log/init_settings.h"
#include "log/write_log.h"

#include <cstdio>
#include <new>

namespace orvel {

namespace {

constexpr unsigned kFlushLimit = 3000; // ms

/// Until the manager takes lines they go to the standard output; when it does not start, the next call tries again.
void startLogging(const LogInitSettings& settings, const char* path, int level) {
    log4z::LogerManager& manager = log4z::LogerManager::instance();
    if (logFrontEnd.tag == nullptr) {
        logFrontEnd.tag = new std::string(settings.tag); // kept until the process ends
    }
    const int id = setUpLogger(manager, settings, path, level);
    if (id < 0) {
        throw std::bad_alloc();
    }
    logFrontEnd.manager.store(&manager, std::memory_order_relaxed);
    logFrontEnd.loggerId.store(id, std::memory_order_relaxed);
    if (!manager.isRunning()) { // a writer that was late last time may run by now
        manager.start();
    }
    logFrontEnd.threshold.store(level, std::memory_order_relaxed);
    if (manager.isRunning()) {
        logFrontEnd.initialised.store(true, std::memory_order_release);
    }
}

void initialise(const char* path, int level) {
    const LogInitSettings& settings = logInitSettings();
    const bool wasInitialised = logFrontEnd.initialised.load(std::memory_order_acquire);
    // Kept for compatibility: 395 is a fixed number, so that one search finds this line in the logs of all builds.
    writeLog(kLogWarning, kLogTagDefault,
             "[%s:%d]binit:%d path:%s tag:%s key:%s reserveDelType:%s level:%d reserveTimeSec:%d "
             "singleSizeMb:%d totalSizeMb:%d isZip:%d",
             "orvel::INITLOG", 395, wasInitialised, path == nullptr ? "null" : path, settings.tag.c_str(),
             settings.key.c_str(), settings.reserveDelType.c_str(), level,
             static_cast<int>(settings.reserveTimeSec), static_cast<int>(settings.singleSizeMb),
             static_cast<int>(settings.totalSizeMb), settings.isZip);
    if (!wasInitialised) {
        startLogging(settings, path, level);
    }
}

} // namespace

void INITLOG(const char* path, int level) {
    try {
        initialise(path, level);
    } catch (const std::bad_alloc&) {
        std::printf("log: no memory to start logging! \n");
        std::fflush(stdout);
    }
}

bool FLUSHLOG() {
    return !logFrontEnd.initialised.load(std::memory_order_acquire) ||
           logFrontEnd.manager.load(std::memory_order_relaxed)->flush(kFlushLimit);
}

} // namespace orvel
