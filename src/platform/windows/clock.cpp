#include "platform/clock.h"

#include "platform/calendar_tm.h"

#include <windows.h>

#include <ctime>

namespace platform {

namespace {

class SystemClock final : public Clock {
public:
    Moment now() override {
        // 100 ns units since 1601-01-01.
        constexpr std::uint64_t kUnitsPerSecond = 10000000;
        constexpr std::uint64_t kUnitsUntil1970 = 116444736000000000;
        FILETIME time;
        GetSystemTimeAsFileTime(&time);
        const std::uint64_t units =
            ((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime) - kUnitsUntil1970;
        return {static_cast<std::int64_t>(units / kUnitsPerSecond),
                static_cast<std::uint32_t>(units % kUnitsPerSecond / 10000)};
    }

    std::uint64_t steadyMilliseconds() override {
        LARGE_INTEGER count;
        LARGE_INTEGER perSecond;
        QueryPerformanceCounter(&count);
        QueryPerformanceFrequency(&perSecond);
        const LONGLONG seconds = count.QuadPart / perSecond.QuadPart;
        const LONGLONG rest = count.QuadPart % perSecond.QuadPart;
        return static_cast<std::uint64_t>(seconds * 1000 + rest * 1000 / perSecond.QuadPart);
    }

    CalendarTime toLocal(std::int64_t seconds) override {
        const auto time = static_cast<__time64_t>(seconds);
        std::tm local{};
        if (_localtime64_s(&local, &time) != 0) {
            return {};
        }
        return calendarTimeOf(local);
    }

    std::int64_t fromLocal(const CalendarTime& local) override {
        std::tm time = tmOf(local);
        return _mktime64(&time);
    }

    void sleep(unsigned milliseconds) override { Sleep(milliseconds); }
};

} // namespace

Clock& systemClock() {
    static Clock& clock =
        *new SystemClock; // never destroyed: the writer thread may outlive static destruction
    return clock;
}

} // namespace platform
