#pragma once

namespace platform {

#ifdef _WIN32
using PipeEnd = void*; ///< a HANDLE
#else
using PipeEnd = int;
#endif

/// Whether another process or thread still holds the other end of a connected pipe. Takes no byte from it. Blocks: never.
bool pipeHasPeer(PipeEnd end);

/// Ends the reads and writes that wait on this end of a pipe, on whichever thread. Does nothing where none ever waits.
void cancelPipe(PipeEnd end);

} // namespace platform
