#pragma once

#include "platform/clock.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace support {

/// A clock that shows the time a test has set, in a time zone the test chooses. Any thread.
class FakeClock final : public platform::Clock {
public:
    /// Seconds east of UTC at a moment; UTC by default.
    using Zone = std::function<std::int64_t(std::int64_t utc)>;

    explicit FakeClock(Zone zone = [](std::int64_t) { return 0; }) : mZone(std::move(zone)) {}

    void set(std::int64_t seconds, std::uint32_t milliseconds = 0) {
        mMilliseconds.store(seconds * 1000 + milliseconds);
    }

    /// Local time, and the milliseconds within its second.
    void setLocal(const platform::CalendarTime& local, std::uint32_t milliseconds = 0) {
        set(fromLocal(local), milliseconds);
    }

    void advance(std::int64_t seconds) { mMilliseconds.fetch_add(seconds * 1000); }

    std::vector<unsigned> sleeps() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mSleeps;
    }

    platform::Moment now() override {
        const std::int64_t all = mMilliseconds.load();
        return {all / 1000, static_cast<std::uint32_t>(all % 1000)};
    }

    /// Stands still until a test advances it: no wait on it ends early.
    std::uint64_t steadyMilliseconds() override { return mSteady.load(); }

    void advanceSteady(std::uint64_t milliseconds) { mSteady.fetch_add(milliseconds); }

    platform::CalendarTime toLocal(std::int64_t seconds) override {
        using namespace std::chrono;
        const sys_seconds local{std::chrono::seconds(seconds + mZone(seconds))};
        const auto day = floor<days>(local);
        const year_month_day date(day);
        const hh_mm_ss time(local - day);
        return {static_cast<int>(date.year()),
                static_cast<int>(static_cast<unsigned>(date.month())),
                static_cast<int>(static_cast<unsigned>(date.day())),
                static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count())};
    }

    std::int64_t fromLocal(const platform::CalendarTime& local) override {
        using namespace std::chrono;
        const sys_days day = year(local.year) / month(static_cast<unsigned>(local.month)) /
                             std::chrono::day(static_cast<unsigned>(local.day));
        const std::int64_t wall =
            seconds(day.time_since_epoch()).count() + local.hour * 3600 + local.minute * 60 + local.second;
        const std::int64_t guess = wall - mZone(wall);
        return wall - mZone(guess);
    }

    void sleep(unsigned milliseconds) override {
        const std::lock_guard<std::mutex> guard(mLock);
        mSleeps.push_back(milliseconds);
    }

private:
    Zone mZone;
    std::atomic<std::int64_t> mMilliseconds{1'700'000'000'000};
    std::atomic<std::uint64_t> mSteady{0};
    std::mutex mLock;
    std::vector<unsigned> mSleeps;
};

} // namespace support
