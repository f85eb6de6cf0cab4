#pragma once

#include "log/front_end.h"

/// Turns every line away at the first test in writeLog: refused input would write thousands in a second.
inline void silenceLog() {
    constexpr int kAboveEveryLevel = 100;
    orvel::logFrontEnd.threshold = kAboveEveryLevel;
}
