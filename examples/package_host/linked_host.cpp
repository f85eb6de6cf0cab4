// A host in C++ that is linked to the library: waits for a phone, for as long as asked at most, and leaves cleanly.
#include <SonviaPCAudioDll.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <thread>

namespace {

std::atomic<bool> firstAudio{false};
std::atomic<bool> notConnected{false};

struct Release {
    void operator()(AudioServiceHandle* service) const { uninitSonviaAudioService(service); }
};

} // namespace

int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    const char* logDir = argc > 1 ? argv[1] : "C:\\ProgramData\\PackageHost";
    const std::chrono::milliseconds limit(argc > 2 ? std::atoi(argv[2]) : 1000);
    const std::unique_ptr<AudioServiceHandle, Release> service(
        initSonviaAudioService(logDir, SONVIA_LOG_INFO));
    if (service == nullptr) {
        std::cerr << "QuPCAudio.exe did not start: it belongs next to this program\n";
        return 1;
    }
    AudioServiceParam param = {};
    // Both run on the library's thread and must not throw.
    param.onEvent = [](int event, int value) {
        std::cout << "event " << event << ", value " << value << "\n";
        firstAudio = firstAudio || event == SONVIA_EVENT_FIRST_AUDIO;
    };
    param.onError = [](int code, int value) {
        std::cout << "error " << code << ", value " << value << "\n";
        notConnected = notConnected || (code == SONVIA_ERROR_CONNECTION && value == 0);
    };
    param.context = &param;
    std::strcpy(param.accountID, "someone@example.com");
    std::strcpy(param.pcName, "Office");
    if (!setParam(service.get(), &param)) {
        std::cerr << "setParam failed\n";
        return 1;
    }
    for (auto waited = 0ms; waited < limit && !firstAudio; waited += 100ms) {
        std::this_thread::sleep_for(100ms);
        // On a busy machine the service may open its pipe later than the library waits for it: ask again.
        if (notConnected.exchange(false)) {
            setParam(service.get(), &param);
        }
    }
    std::cout << "header " << SONVIA_VERSION_STRING << ", state " << getState(service.get()) << ", phone \""
              << getSourceName(service.get()) << "\"\n";
    return 0;
}
