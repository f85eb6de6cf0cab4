#pragma once

#include <string>
#include <string_view>

#include "oracle/bytes.h"

namespace inspect {

std::string hexOf(const oracle::Bytes& bytes, std::string_view separator = "");

/// Pairs of digits; spaces may stand between them. Throws std::invalid_argument with what was expected.
oracle::Bytes bytesOfHex(std::string_view hex);

} // namespace inspect
