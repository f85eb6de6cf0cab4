#include <csignal>

#include "support/host_library.h"

namespace support {

// A program that writes to sockets ignores this signal; the library leaves the dispositions of its host alone, and
// the product's system has no such signal.
HostLibrary::HostLibrary()
    : mApi{initSonviaAudioService, uninitSonviaAudioService,
           exitAudioProjection,    getState,
           getSourceName,          setParam,
           setAccountID,           getVersion} {
    std::signal(SIGPIPE, SIG_IGN);
}

HostLibrary::~HostLibrary() = default;

} // namespace support
