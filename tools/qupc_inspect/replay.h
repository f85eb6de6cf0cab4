#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capture.h"

namespace inspect {

struct ReplayOptions {
    Side side = Side::Service; ///< the one that is played; what the other one does is compared
    std::string pipe;
    double speed = 1;                   ///< times as fast as it was recorded; 0: without pauses
    std::uint64_t patienceMs = 5000;    ///< how long what is recorded may take to come
    std::string program;                ///< a host to start once the pipe is served; none when empty
    std::vector<std::string> arguments; ///< of that host
};

/// Plays one side of the capture over the pipe, one packet after another: a packet is sent when everything recorded before
/// it has come. Returns the first difference, in a few lines that begin with "file:line: ", or nothing. Throws InputError.
std::string replay(CaptureReader& reader, const ReplayOptions& options);

} // namespace inspect
