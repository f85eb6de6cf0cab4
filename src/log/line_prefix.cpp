#include "log/line_prefix.h"

#include "log/log_level.h"
#include "log/log_record.h"
#include "platform/path_text.h"
#include "platform/thread_block.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace orvel::log4z {

/// What a thread keeps from its last line.
struct PrefixCache {
    std::uint64_t serial;  ///< of the prefix that has filled it; 0 for none
    std::int64_t midnight; ///< the first moment of the day in `clockText`
    std::int64_t second;   ///< the second in `clockText`
    char clockText[16];    ///< "MM-DD HH:MM:SS."
    char originText[288];  ///< " [process] [thread] "
    std::size_t originLength;
};

namespace {

constexpr std::size_t kClockLength = 15;
constexpr std::size_t kMaxProcessName = 259;

static_assert(sizeof(PrefixCache::originText) > kMaxProcessName + sizeof " [] [4294967295] ");
static_assert(LinePrefix::kMaxLength >= kClockLength + 3 + sizeof(PrefixCache::originText) + 6);
static_assert(LinePrefix::kMaxLength < LogRecord::kCapacity);

constexpr char kTwoDigits[] = "00010203040506070809101112131415161718192021222324"
                              "25262728293031323334353637383940414243444546474849"
                              "50515253545556575859606162636465666768697071727374"
                              "75767778798081828384858687888990919293949596979899";

constexpr char kLevelWords[][7] = {"TRACE ", "DEBUG ", "INFO  ", "WARN  ", "ERROR ", "ALARM ", "FATAL "};

void putTwoDigits(char* out, std::int64_t value) {
    std::memcpy(out, kTwoDigits + 2 * (value % 100), 2);
}

static_assert(sizeof(PrefixCache) <= platform::kThreadBlockSize);

std::atomic<std::uint64_t> nextSerial{1};

} // namespace

LinePrefix::LinePrefix(platform::Clock& clock, const std::string& hostFileName)
    : mClock(clock), mProcessName(processNameOf(hostFileName)),
      mSerial(nextSerial.fetch_add(1, std::memory_order_relaxed)) {}

std::string LinePrefix::processNameOf(const std::string& hostFileName) {
    if (hostFileName.empty()) {
        return "process";
    }
    const std::string_view name = platform::lastPathComponent(hostFileName).substr(0, kMaxProcessName);
    return std::string(name.substr(0, name.rfind('.')));
}

int LinePrefix::write(char* out, platform::Moment time, std::uint32_t threadId, int level) const {
    std::optional<PrefixCache> fresh;
    void* const kept = platform::threadBlock();
    PrefixCache& cache = kept == nullptr ? fresh.emplace() : *static_cast<PrefixCache*>(kept);
    if (cache.serial != mSerial) {
        refreshOwner(cache, threadId);
        refreshDay(cache, time.seconds);
    } else if (time.seconds != cache.second) {
        // Kept for compatibility: hours count from midnight, and a day has 24 of them. Where daylight saving ends,
        // lines run past 24:00; where it begins, they are an hour late. By the wall clock, lines of one file would not
        // be in order.
        if (time.seconds < cache.midnight || time.seconds >= cache.midnight + platform::kSecondsPerDay) {
            refreshDay(cache, time.seconds);
        }
        refreshSecond(cache, time.seconds);
    }

    char* next = out;
    std::memcpy(next, cache.clockText, kClockLength);
    next += kClockLength;
    *next++ = static_cast<char>('0' + time.milliseconds / 100 % 10);
    putTwoDigits(next, time.milliseconds);
    next += 2;
    std::memcpy(next, cache.originText, cache.originLength);
    next += cache.originLength;
    std::memcpy(next, kLevelWords[std::clamp<int>(level, kLevelTrace, kLevelFatal)], 6);
    next += 6;
    return static_cast<int>(next - out);
}

void LinePrefix::refreshOwner(PrefixCache& cache, std::uint32_t threadId) const {
    const int length = std::snprintf(cache.originText, sizeof cache.originText, " [%s] [%04u] ",
                                     mProcessName.c_str(), static_cast<unsigned>(threadId));
    cache.originLength = static_cast<std::size_t>(length);
    cache.serial = mSerial;
}

void LinePrefix::refreshDay(PrefixCache& cache, std::int64_t seconds) const {
    const platform::CalendarTime local = mClock.toLocal(seconds);
    cache.midnight = platform::localMidnight(mClock, seconds);
    putTwoDigits(cache.clockText, local.month);
    cache.clockText[2] = '-';
    putTwoDigits(cache.clockText + 3, local.day);
    cache.clockText[5] = ' ';
    cache.clockText[8] = ':';
    cache.clockText[11] = ':';
    cache.clockText[14] = '.';
    refreshSecond(cache, seconds);
}

void LinePrefix::refreshSecond(PrefixCache& cache, std::int64_t seconds) const {
    const std::int64_t sinceMidnight = seconds - cache.midnight;
    putTwoDigits(cache.clockText + 6, sinceMidnight / 3600);
    putTwoDigits(cache.clockText + 9, sinceMidnight / 60 % 60);
    putTwoDigits(cache.clockText + 12, sinceMidnight % 60);
    cache.second = seconds;
}

} // namespace orvel::log4z
