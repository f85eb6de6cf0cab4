#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::log4z {

/// One "[name]" of a configuration text with the pairs after it, keys in lower case.
struct ConfigSection {
    std::string name;
    std::vector<std::pair<std::string, std::string>> pairs;
};

struct ConfigText {
    std::vector<ConfigSection> sections;
    std::vector<std::string> warnings; ///< in the order of the lines that caused them, as they are shown
};

/// Reads a configuration text: "[name]" begins a logger's section, "key=value" sets one of its settings, "#" begins a
/// comment. What cannot be read is skipped.
ConfigText parseConfigText(std::string_view text);

/// The sum of all bytes: shows whether a configuration has changed since it was applied.
std::uint32_t configChecksum(std::string_view text);

/// "false" and "0" are false, anything else is true.
bool configFlag(std::string_view value);

/// Reads a level word; false leaves `level` as it is.
bool configLevel(std::string_view value, int& level);

/// Reads a decimal number; false leaves `number` as it is.
bool configNumber(std::string_view value, std::int64_t& number);

/// Strips carriage returns, line feeds, tabs and spaces from both ends.
std::string_view trimmed(std::string_view text);

} // namespace orvel::log4z
