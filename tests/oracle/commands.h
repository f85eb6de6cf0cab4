#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace oracle {

/// The command's name, or its number in decimal when it has none.
std::string nameOf(std::uint16_t command);
std::optional<std::uint16_t> commandOf(const std::string& name);

} // namespace oracle
