#include "platform/clock.h"

namespace platform {

std::int64_t localMidnight(Clock& clock, std::int64_t seconds) {
    const CalendarTime local = clock.toLocal(seconds);
    const std::int64_t midnight = clock.fromLocal({local.year, local.month, local.day, 0, 0, 0});
    if (midnight <= seconds) {
        return midnight;
    }
    // Where daylight saving ends at midnight, the day has two midnights, and `fromLocal` chose the later one.
    return seconds - (local.hour * 3600 + local.minute * 60 + local.second);
}

} // namespace platform
