#pragma once

#include "platform/clock.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvel::log4z {

struct PrefixCache;

/// Writes the beginning of a line: "MM-DD HH:MM:SS.mmm [process] [thread] LEVEL ". Built without a formatter; each
/// thread caches what does not change between two lines. Thread: any.
class LinePrefix {
public:
    /// hostFileName: the host's executable; every line has its name without folder and extension.
    LinePrefix(platform::Clock& clock, const std::string& hostFileName);
    LinePrefix(const LinePrefix&) = delete;
    LinePrefix& operator=(const LinePrefix&) = delete;

    static constexpr std::size_t kMaxLength = 320;

    /// Writes the prefix to `out`, which has room for kMaxLength bytes, and returns its length. Not terminated.
    /// Never throws.
    int write(char* out, platform::Moment time, std::uint32_t threadId, int level) const;

    /// The executable's name as lines have it; "process" when the executable is not known.
    static std::string processNameOf(const std::string& hostFileName);

private:
    void refreshDay(PrefixCache& cache, std::int64_t seconds) const;
    void refreshSecond(PrefixCache& cache, std::int64_t seconds) const;
    void refreshOwner(PrefixCache& cache, std::uint32_t threadId) const;

    platform::Clock& mClock;
    const std::string mProcessName;
    const std::uint64_t
        mSerial; ///< in the caches that this prefix has filled: another one's are not valid for it
};

} // namespace orvel::log4z
