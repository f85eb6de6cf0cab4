#pragma once

#include "platform/clock.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvel::log4z {

struct PrefixCache;

/// Writes what every line begins with: "MM-DD HH:MM:SS.mmm [process] [thread] LEVEL ". Built by hand, and what does
/// not change between two lines of a thread is kept from the last one.
/// Thread: any; each has its own cache, which the prefix last used on it owns.
class LinePrefix {
public:
    /// hostFileName: the host's executable; its name without folder and extension stands in every line.
    LinePrefix(platform::Clock& clock, const std::string& hostFileName);
    LinePrefix(const LinePrefix&) = delete;
    LinePrefix& operator=(const LinePrefix&) = delete;

    static constexpr std::size_t kMaxLength = 320;

    /// Writes the prefix to `out`, which has room for kMaxLength bytes, and returns its length. Not terminated.
    /// Never throws.
    int write(char* out, platform::Moment time, std::uint32_t threadId, int level) const;

    /// The executable's name as it stands in the lines; "process" when the executable is not known.
    static std::string processNameOf(const std::string& hostFileName);

private:
    void refreshDay(PrefixCache& cache, std::int64_t seconds) const;
    void refreshSecond(PrefixCache& cache, std::int64_t seconds) const;
    void refreshOwner(PrefixCache& cache, std::uint32_t threadId) const;

    platform::Clock& mClock;
    const std::string mProcessName;
    const std::uint64_t mSerial; ///< tells the caches of this prefix from those of one that is gone
};

} // namespace orvel::log4z
