// The library as a host meets it: eight functions found by their names.
//
// Built for Windows the DLL is loaded and asked for each function; natively, where there is no DLL, the same
// eight functions are linked in. Tests see only this table and run in both worlds unchanged.
#pragma once

#include "SonviaPCAudioDll.h"

namespace support {

struct HostApi {
    initSonviaAudioService_fn init = nullptr;
    uninitSonviaAudioService_fn uninit = nullptr;
    exitAudioProjection_fn exitProjection = nullptr;
    getState_fn state = nullptr;
    getSourceName_fn sourceName = nullptr;
    setParam_fn setParam = nullptr;
    setAccountID_fn setAccountID = nullptr;
    getVersion_fn version = nullptr;
};

// One LoadLibrary with its FreeLibrary. Throws std::runtime_error when the DLL or a function is missing.
class HostLibrary {
public:
    HostLibrary();
    ~HostLibrary();
    HostLibrary(const HostLibrary&) = delete;
    HostLibrary& operator=(const HostLibrary&) = delete;

    const HostApi& api() const { return mApi; }

private:
    HostApi mApi;
#ifdef _WIN32
    void* mModule = nullptr;
#endif
};

// The library loaded on the first use and kept until the process ends.
const HostApi& hostApi();

} // namespace support
