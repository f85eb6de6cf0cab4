#include "log/init_log.h"

#include "log/write_log.h"

namespace orvel {

void INITLOG(const char* path, int level) {
    writeLog(kLogWarning, kLogTagDefault,
             "[%s:%d]binit:%d path:%s tag:%s key:%s reserveDelType:%s level:%d reserveTimeSec:%d "
             "singleSizeMb:%d totalSizeMb:%d isZip:%d",
             "orvel::INITLOG", 395, 0, path == nullptr ? "null" : path, "Sonvia", "Sonvia", "size", level,
             172800, 2, 5, 0);
}

bool FLUSHLOG() {
    return true;
}

} // namespace orvel
