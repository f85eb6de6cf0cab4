#pragma once

#include <cstdint>
#include <string>

/// The commands that this side sends or acts on; the vocabulary has many more (see commandName).
enum CommandId : std::uint16_t {
    kCommandNotify = 34,
    kCommandStopPCAudioZLK = 8193,
};

/// The values of the two notifications that the host's calls send.
enum NotifyValue : std::int32_t {
    kNotifyStopService = 200004,
    kNotifyExitProjection = 200005,
};

/// Name of a command id for log lines; for an id outside the vocabulary the decimal id followed by " is
/// unknown". No id is refused for being unknown.
std::string commandName(std::int32_t id);
