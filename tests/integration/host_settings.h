// What a library could change in its host's process without the host seeing it.
#pragma once

#include <map>
#include <string>

namespace support {

// Each setting's value as text, by its name: for comparison and for people who look for the difference.
std::map<std::string, std::string> hostSettings();

} // namespace support
