// A host in C++ that loads the library when it runs, and does without it where it is not installed.
#include <SonviaPCAudioDll.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include <windows.h>

namespace {

HANDLE firstAudio = nullptr;
HANDLE notConnected = nullptr;

template <typename Function>
bool find(HMODULE library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    return function != nullptr;
}

struct Library {
    initSonviaAudioService_fn init = nullptr;
    setParam_fn setParam = nullptr;
    getState_fn getState = nullptr;
    getSourceName_fn getSourceName = nullptr;
    uninitSonviaAudioService_fn uninit = nullptr;

    bool load() {
        const HMODULE library = LoadLibraryW(L"SonviaPCAudioDll.dll");
        return library != nullptr && find(library, "initSonviaAudioService", init) &&
               find(library, "setParam", setParam) && find(library, "getState", getState) &&
               find(library, "getSourceName", getSourceName) &&
               find(library, "uninitSonviaAudioService", uninit);
    }
};

} // namespace

int main(int argc, char** argv) {
    Library library;
    if (!library.load()) {
        std::cerr << "SonviaPCAudioDll.dll cannot be used, error " << GetLastError() << "\n";
        return 2;
    }
    firstAudio = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    notConnected = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    AudioServiceHandle* service =
        library.init(argc > 1 ? argv[1] : "C:\\ProgramData\\PackageHost", SONVIA_LOG_INFO);
    if (service == nullptr) {
        std::cerr << "QuPCAudio.exe did not start: it belongs next to this program\n";
        return 1;
    }
    AudioServiceParam param = {};
    // Both run on the library's thread and must not throw.
    param.onEvent = [](int event, int value) {
        std::cout << "event " << event << ", value " << value << "\n";
        if (event == SONVIA_EVENT_FIRST_AUDIO) {
            SetEvent(firstAudio);
        }
    };
    param.onError = [](int code, int value) {
        std::cout << "error " << code << ", value " << value << "\n";
        if (code == SONVIA_ERROR_CONNECTION && value == 0) {
            SetEvent(notConnected);
        }
    };
    param.context = &param;
    std::strcpy(param.accountID, "someone@example.com");
    library.setParam(service, &param);
    const HANDLE both[] = {firstAudio, notConnected};
    const DWORD milliseconds = argc > 2 ? static_cast<DWORD>(std::atoi(argv[2])) : 1000;
    const ULONGLONG start = GetTickCount64();
    // On a busy machine the service may open its pipe later than the library waits for it: ask again.
    while (GetTickCount64() - start < milliseconds &&
           WaitForMultipleObjects(2, both, FALSE, milliseconds) == WAIT_OBJECT_0 + 1) {
        Sleep(100);
        library.setParam(service, &param);
    }
    std::cout << "header " << SONVIA_VERSION_STRING << ", state " << library.getState(service) << ", phone \""
              << library.getSourceName(service) << "\"\n";
    library.uninit(service);
    return 0;
}
