#pragma once

#include <cstdint>

namespace platform {

/// A moment: seconds since 1970-01-01 UTC and the milliseconds within that second.
struct Moment {
    std::int64_t seconds = 0;
    std::uint32_t milliseconds = 0;
};

/// A moment as a calendar and a wall clock show it. month 1 to 12, day 1 to 31.
struct CalendarTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

inline constexpr std::int64_t kSecondsPerDay = 86400;

/// The log's only access to the time, so that a test can drive midnights, clock steps and daylight-saving days.
/// Thread: any, for every operation.
class Clock {
public:
    virtual ~Clock() = default;

    virtual Moment now() = 0;

    /// Milliseconds since some moment in the past. Unlike `now` it never steps when somebody sets the clock.
    virtual std::uint64_t steadyMilliseconds() = 0;

    /// The local calendar time of a moment.
    virtual CalendarTime toLocal(std::int64_t seconds) = 0;

    /// The moment of a local calendar time; for one that daylight saving skips or repeats, a moment near it.
    virtual std::int64_t fromLocal(const CalendarTime& local) = 0;

    /// Blocks the caller.
    virtual void sleep(unsigned milliseconds) = 0;
};

/// The first moment of the local day that `seconds` lies in, never later than `seconds`.
std::int64_t localMidnight(Clock& clock, std::int64_t seconds);

/// The system's clock, in the process's time zone. Lives until the process ends.
Clock& systemClock();

} // namespace platform
