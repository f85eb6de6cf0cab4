#pragma once

#include <nlohmann/json_fwd.hpp>

#include "oracle/bytes.h"

namespace inspect {

/// The entries of a payload as far as they are whole: `key`, `type` and `value` each. Keys and texts have one character a
/// byte, U+0000 to U+00FF, whatever their encoding is: any bytes survive.
nlohmann::ordered_json entriesJson(const oracle::Bytes& payload);

/// The bytes that such entries stand for. Throws std::invalid_argument with what was expected.
oracle::Bytes payloadOf(const nlohmann::json& entries);

} // namespace inspect
