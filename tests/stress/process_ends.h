// The ways in which a process can end by its own doing.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace stress {

// Each ends the process at once, from whichever thread calls it, with that exit code; "abort" has a code of its own.
// Leaving main is not among them.
std::map<std::string, std::function<void(int)>> processEnds();

} // namespace stress
