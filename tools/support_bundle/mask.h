#pragma once

#include <string>

namespace bundle {

/// A line of a capture (docs/tools.md) with every text and every byte whose meaning is not known made of the letter x.
/// What is no line of a capture becomes an empty text.
std::string maskedLine(const std::string& line);

} // namespace bundle
