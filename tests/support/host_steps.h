// What the programs do that play a host: each step says what went wrong by the exit code that the program then has.
#pragma once

#include <string>

#include "support/host_library.h"
#include "support/service_fixture.h"

namespace support {

// 0 says that all went as a host expects, 2 and more what did not; any other exit code was not the program's doing.
enum Result : int {
    kGood = 0,
    kNoHandle = 2,
    kNoPipe,
    kSetParamFailed,
    kNoEvent,
    kNoLogLine,
    kUnexpectedHandle,
    kUninitFailed,
    kServiceFileStays,
    kGrown,
    kSettingsChanged
};

AudioServiceHandle* startHost(const HostApi& api, const std::string& folder = logFolder(),
                              int level = SONVIA_LOG_DEBUG);
Result configure(const HostApi& api, AudioServiceHandle* handle);
// startHost, and waits for the service's pipe: the library connects once, and a busy machine may need longer to open
// the pipe than the library waits.
Result startAndWaitForPipe(const HostApi& api, AudioServiceHandle*& handle,
                           const std::string& folder = logFolder(), int level = SONVIA_LOG_DEBUG);
// From init to the first event.
Result begin(const HostApi& api, AudioServiceHandle*& handle, const std::string& folder = logFolder(),
             int level = SONVIA_LOG_DEBUG);
// From init to uninit, with every call in between.
Result wholeLife(const HostApi& api, const std::string& folder = logFolder(), int level = SONVIA_LOG_DEBUG);

} // namespace support
