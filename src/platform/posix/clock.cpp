#include "platform/clock.h"

#include "platform/calendar_tm.h"

#include <ctime>
#include <mutex>

namespace platform {

namespace {

// The C library rereads the time zone's name in these calls, under a lock that the thread sanitizer does not see; it
// sees this one. Taken once a day by each thread that logs.
std::mutex& timeZoneMutex() {
    static constinit std::mutex mutex; // neither allocates nor has a destructor here
    return mutex;
}

class SystemClock final : public Clock {
public:
    Moment now() override {
        timespec time{};
        ::clock_gettime(CLOCK_REALTIME, &time);
        return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec / 1000000)};
    }

    std::uint64_t steadyMilliseconds() override {
        timespec time{};
        ::clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
               static_cast<std::uint64_t>(time.tv_nsec / 1000000);
    }

    CalendarTime toLocal(std::int64_t seconds) override {
        const auto time = static_cast<std::time_t>(seconds);
        std::tm local{};
        const std::lock_guard guard(timeZoneMutex());
        if (::localtime_r(&time, &local) == nullptr) {
            return {}; // GCOVR_EXCL_LINE a time beyond what the C library can put in a calendar
        }
        return calendarTimeOf(local);
    }

    std::int64_t fromLocal(const CalendarTime& local) override {
        std::tm time = tmOf(local);
        const std::lock_guard guard(timeZoneMutex());
        return std::mktime(&time);
    }

    void sleep(unsigned milliseconds) override {
        timespec rest{};
        rest.tv_sec = milliseconds / 1000;
        rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
        ::nanosleep(&rest, nullptr);
    }
};

} // namespace

Clock& systemClock() {
    static Clock& clock =
        *new SystemClock; // never destroyed: the writer thread may outlive static destruction
    return clock;
}

} // namespace platform
