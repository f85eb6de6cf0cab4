#include <stdexcept>
#include <string>

#include <windows.h>

#include "support/host_library.h"

namespace support {

namespace {

template <typename Function>
void find(HMODULE module, const char* name, Function& function) {
    FARPROC address = GetProcAddress(module, name);
    if (address == nullptr) {
        throw std::runtime_error(std::string("the DLL does not export ") + name);
    }
    // Through void*: a direct cast between function types is what compilers warn about.
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

} // namespace

HostLibrary::HostLibrary() {
    HMODULE module = LoadLibraryW(L"SonviaPCAudioDll.dll");
    if (module == nullptr) {
        throw std::runtime_error("SonviaPCAudioDll.dll cannot be loaded: " + std::to_string(GetLastError()));
    }
    mModule = module;
    find(module, "initSonviaAudioService", mApi.init);
    find(module, "uninitSonviaAudioService", mApi.uninit);
    find(module, "exitAudioProjection", mApi.exitProjection);
    find(module, "getState", mApi.state);
    find(module, "getSourceName", mApi.sourceName);
    find(module, "setParam", mApi.setParam);
    find(module, "setAccountID", mApi.setAccountID);
    find(module, "getVersion", mApi.version);
}

HostLibrary::~HostLibrary() {
    FreeLibrary(static_cast<HMODULE>(mModule));
}

} // namespace support
