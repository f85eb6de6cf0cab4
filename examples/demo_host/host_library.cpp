#include "host_library.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

template <typename Function>
void find(HMODULE module, const char* name, Function& function) {
    const FARPROC found = GetProcAddress(module, name);
    if (found == nullptr) {
        std::fprintf(stderr, "SonviaPCAudioDll.dll has no %s\n", name);
        std::exit(2);
    }
    static_assert(sizeof function == sizeof found);
    std::memcpy(&function, &found, sizeof function);
}

} // namespace

HostLibrary::HostLibrary(const std::string& path) : module(LoadLibraryA(path.c_str())) {
    if (module == nullptr) {
        std::fprintf(stderr, "SonviaPCAudioDll.dll cannot be loaded (error %lu)\n", GetLastError());
        std::exit(2);
    }
    find(module, "initSonviaAudioService", init);
    find(module, "uninitSonviaAudioService", uninit);
    find(module, "setParam", setParam);
    find(module, "setAccountID", setAccountID);
    find(module, "exitAudioProjection", exitProjection);
    find(module, "getState", state);
    find(module, "getSourceName", sourceName);
    find(module, "getVersion", version);
}

HostLibrary::~HostLibrary() {
    FreeLibrary(module);
}
