#include "support/host_library.h"

namespace support {

HostLibrary::HostLibrary()
    : mApi{initSonviaAudioService, uninitSonviaAudioService,
           exitAudioProjection,    getState,
           getSourceName,          setParam,
           setAccountID,           getVersion} {}

HostLibrary::~HostLibrary() = default;

} // namespace support
