#include "log/logger_settings.h"

#include "log/config_text.h"

#include <algorithm>
#include <limits>

namespace orvel::log4z {

namespace {

/// How the value of a configuration key is read into a change; false when it cannot be.
using ValueReader = bool (*)(std::string_view value, ConfiguredChange& change);

bool readText(std::string_view value, ConfiguredChange& change) {
    change.text = value.substr(0, value.find('\0')); // a text ends where a C string would
    return true;
}

bool readFlag(std::string_view value, ConfiguredChange& change) {
    change.number = configFlag(value) ? 1 : 0;
    return true;
}

bool readLevel(std::string_view value, ConfiguredChange& change) {
    int level = 0;
    const bool isLevel = configLevel(value, level);
    change.number = level;
    return isLevel;
}

bool readNumber(std::string_view value, ConfiguredChange& change) {
    return configNumber(value, change.number);
}

bool readMegabytes(std::string_view value, ConfiguredChange& change) {
    return readNumber(value, change) && change.number >= 0 && change.number <= kNoLimit;
}

struct ConfigKey {
    std::string_view key;
    SettingChange code;
    ValueReader read;
};

constexpr ConfigKey kConfigKeys[] = {
    {"path", kChangePath, readText},
    {"name", kChangeName, readText},
    {"level", kChangeLevel, readLevel},
    {"display", kChangeDisplay, readFlag},
    {"outfile", kChangeOutFile, readFlag},
    {"monthdir", kChangeMonthdir, readFlag},
    {"limitsize", kChangeLimitSize, readMegabytes},
    {"fileline", kChangeFileLine, readFlag},
    {"enable", kChangeEnable, readFlag},
    {"reserve", kChangeReserveTime, readNumber},
};

} // namespace

void LoggerSettings::set(SettingChange code, std::int32_t number, std::string_view text) {
    switch (code) {
    case kChangeEnable:
        enable.store(number != 0);
        break;
    case kChangeName:
        name = text;
        break;
    case kChangePath:
        path = text;
        break;
    case kChangeLevel:
        level.store(number);
        break;
    case kChangeFileLine:
        fileline.store(number != 0);
        break;
    case kChangeDisplay:
        display = number != 0;
        break;
    case kChangeOutFile:
        outfile = number != 0;
        break;
    case kChangeLimitSize:
        limitSizeMb = static_cast<std::uint32_t>(number);
        break;
    case kChangeTotalSize:
        totalSizeMb = static_cast<std::uint32_t>(number);
        break;
    case kChangeMonthdir:
        monthdir = number != 0;
        break;
    case kChangeReserveTime:
        reserveSeconds = number;
        break;
    case kChangeZip:
        isZip = number != 0;
        break;
    case kChangeReserveDelType:
        reserveDelType = static_cast<ReserveDelType>(number);
        break;
    case kChangeVersion:
        version = text;
        break;
    case kChangeHistory:
    case kChangeNone:
        break;
    }
}

std::int32_t changeNumber(SettingChange code, std::int64_t number) {
    constexpr std::int64_t kLargest = std::numeric_limits<std::int32_t>::max();
    switch (code) {
    case kChangeLimitSize:
    case kChangeTotalSize:
        return static_cast<std::int32_t>(number == 0 ? kNoLimit : static_cast<std::uint32_t>(number));
    case kChangeReserveTime:
        // A record carries 32 bits; 68 years are as good as more.
        return static_cast<std::int32_t>(std::clamp<std::int64_t>(number, 0, kLargest));
    case kChangeReserveDelType:
        if (number < kReserveBySize || number > kReserveBySizeAndTime) {
            return kReserveBySizeOrTime;
        }
        return static_cast<std::int32_t>(number);
    default:
        return static_cast<std::int32_t>(number);
    }
}

std::optional<ConfiguredChange> changeOfPair(std::string_view key, std::string_view value) {
    const auto* const row = std::find_if(std::begin(kConfigKeys), std::end(kConfigKeys),
                                         [&](const ConfigKey& known) { return known.key == key; });
    if (row == std::end(kConfigKeys)) {
        return std::nullopt;
    }
    ConfiguredChange change{row->code, 0, {}};
    return row->read(value, change) ? std::optional(change) : std::nullopt;
}

} // namespace orvel::log4z
