#include "platform/pipe_peer.h"

#include <windows.h>

namespace platform {

bool pipeHasPeer(PipeEnd end) {
    return PeekNamedPipe(end, nullptr, 0, nullptr, nullptr, nullptr) != FALSE;
}

void cancelPipe(PipeEnd end) {
    CancelIoEx(end, nullptr);
}

} // namespace platform
