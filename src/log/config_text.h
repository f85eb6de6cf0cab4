#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::log4z {

/// One "[name]" of a configuration text with the pairs below it, keys in lower case.
struct ConfigSection {
    std::string name;
    std::vector<std::pair<std::string, std::string>> pairs;
};

struct ConfigText {
    std::vector<ConfigSection> sections;
    std::vector<std::string> warnings; ///< in the order of the lines that caused them, as they are shown
};

/// Reads a configuration text: "[name]" opens a logger's section, "key=value" sets something of it, "#" begins a
/// comment. What cannot be read is left out and loses nothing else.
ConfigText parseConfigText(std::string_view text);

/// The sum of all bytes: whether a configuration has changed since it was applied.
std::uint32_t configChecksum(std::string_view text);

/// "false" and "0" are false, anything else is true.
bool configFlag(std::string_view value);

/// The level of a level word; false leaves `level` as it is.
bool configLevel(std::string_view value, int& level);

/// A whole decimal number; false leaves `number` as it is.
bool configNumber(std::string_view value, std::int64_t& number);

/// Without the carriage returns, line feeds, tabs and blanks at both ends.
std::string_view trimmed(std::string_view text);

} // namespace orvel::log4z
