#pragma once

namespace platform {

#ifdef _WIN32
using PipeEnd = void*; ///< a HANDLE
#else
using PipeEnd = int;
#endif

/// Whether another process or thread still holds the other end of a connected pipe. Takes no byte from it. Blocks: never.
bool pipeHasPeer(PipeEnd end);

} // namespace platform
