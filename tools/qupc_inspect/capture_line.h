#pragma once

#include <string>

#include "capture.h"

namespace inspect {

struct CaptureLine {
    bool isHead = false; ///< it says what the lines behind it are, and nothing was sent
    bool masked = false;
    Chunk chunk; ///< without its line number
};

/// Throws std::invalid_argument with what was expected.
CaptureLine readCaptureLine(const std::string& line);

/// The first line of a capture.
std::string captureHead(bool masked);
std::string captureLine(const Chunk& chunk);

} // namespace inspect
