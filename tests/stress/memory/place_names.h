#pragma once

#include <string>
#include <vector>

// The functions at these offsets in the watched library, one a line, the nearest caller first. As far as a tool of the
// machine knows them; else the offsets.
std::string placeNames(const std::string& program, const std::vector<std::string>& offsets);
