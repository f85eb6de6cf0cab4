// The names of this process's threads, as a debugger shows them.
#pragma once

#include <string>
#include <vector>

namespace support {

// One entry for each thread, in no particular order; empty for a thread without a name.
std::vector<std::string> threadNames();

// That of the calling thread.
std::string threadName();

} // namespace support
