#pragma once

#include "SonviaPCAudioDll.h"

#include <string>
#include <windows.h>

/// The library as a host meets it: loaded, and its functions found by their names.
struct HostLibrary {
    /// Ends the program with a message when the DLL or one of the names is missing.
    explicit HostLibrary(const std::string& path);
    ~HostLibrary();
    HostLibrary(const HostLibrary&) = delete;
    HostLibrary& operator=(const HostLibrary&) = delete;

    HMODULE module = nullptr;
    initSonviaAudioService_fn init = nullptr;
    uninitSonviaAudioService_fn uninit = nullptr;
    setParam_fn setParam = nullptr;
    setAccountID_fn setAccountID = nullptr;
    exitAudioProjection_fn exitProjection = nullptr;
    getState_fn state = nullptr;
    getSourceName_fn sourceName = nullptr;
    getVersion_fn version = nullptr;
};
