#pragma once

#include <cstdint>

namespace orvel::log4z {

/// One line, or one change of a logger's setting, on its way to the writer thread. Only the bytes in use are ever
/// touched: most of a line's cost is moving them from one processor to another.
#pragma pack(push, 1)

struct LogRecord {
    static constexpr int kCapacity = 8192;

    std::int32_t loggerId;
    std::int32_t type;      ///< 0 for a line, otherwise a SettingChange
    std::int32_t typeValue; ///< the new value of a setting
    std::int32_t level;
    std::int64_t time;     ///< seconds since 1970-01-01 UTC
    std::uint32_t precise; ///< milliseconds within that second
    std::uint32_t threadId;
    std::int32_t contentLength;
    char content[kCapacity + 3]; ///< the text, with room for the line end and the terminator
};

#pragma pack(pop)

static_assert(sizeof(LogRecord) == 8231);

} // namespace orvel::log4z
