// A desktop host in small: loads the DLL, plays one projection against the stand-in service, and shows what each side
// saw. Ends with 0 only when everything that had to happen did.

#include "host_library.h"
#include "timeline.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>
#include <windows.h>

namespace {

namespace fs = std::filesystem;

// What the service does; tools/standin_service/README.md has the words.
constexpr const char* kScenario = R"(wait packet command 34 key KORUInfo
notify string phone-name "Handset A"
notify int player-state 1
notify int buffering-start 1
wait 200
notify int buffering-end 1
notify int first-audiopcm 1
notify int player-state 2
notify int change-mode 3
wait packet command 34 key accountID
notify string phone-name "Handset B"
wait packet command 34 key exitAudioProjection
notify int player-state 0
)";

Timeline& timeline = Timeline::instance();
int failures = 0;

void expect(bool happened, const char* what) {
    if (!happened) {
        ++failures;
        timeline.call(std::string("MISSING: ") + what);
    }
}

void copyText(char (&field)[SONVIA_TEXT_SIZE], const char* text) {
    std::strncpy(field, text, sizeof field - 1);
}

AudioServiceParam identity() {
    AudioServiceParam param = {};
    param.onEvent = Timeline::onEvent;
    param.onError = Timeline::onError;
    param.context = &timeline;
    copyText(param.accountID, "someone@example.com");
    copyText(param.deviceID, "6f1c2a7e");
    copyText(param.sn, "SN-0042");
    copyText(param.model, "Desktop 9");
    copyText(param.bluetoothMac, "00:11:22:33:44:55");
    copyText(param.pcName, "Office");
    return param;
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

const char* result(bool value) {
    return value ? " -> true" : " -> false";
}

/// Connects as a careful host does: a service that starts slowly may not have opened its pipe yet; then setParam is
/// called again. True when the first event of the service has come.
bool connect(const HostLibrary& library, AudioServiceHandle* service) {
    const AudioServiceParam param = identity();
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::size_t before = timeline.count();
        const bool taken = library.setParam(service, &param);
        timeline.call(std::string("setParam(handle, {callbacks, six texts})") + result(taken));
        if (!taken || !timeline.waitForMoreThan(before)) {
            return false;
        }
        if (!timeline.lastWas(SONVIA_ERROR_CONNECTION, 0)) {
            return true;
        }
        Sleep(100);
    }
    return false;
}

void followProjection(const HostLibrary& library, AudioServiceHandle* service) {
    if (!connect(library, service)) {
        expect(false, "a connection");
        return;
    }
    expect(timeline.waitForEvent(SONVIA_EVENT_BUFFERING_STARTED, 0), "buffering started");
    expect(timeline.waitForEvent(SONVIA_EVENT_BUFFERING_ENDED, 0), "buffering ended");
    expect(timeline.waitForEvent(SONVIA_EVENT_FIRST_AUDIO, 0), "first audio");
    expect(timeline.waitForEvent(SONVIA_EVENT_MODE_CHANGED, 3), "mode changed to 3");
    expect(library.state(service) == 2, "state 2");
    timeline.call("getState(handle) -> " + std::to_string(library.state(service)));
    timeline.call("getSourceName(handle) -> " + quoted(library.sourceName(service)));

    timeline.call(std::string("setAccountID(handle, \"someone.else@example.com\")") +
                  result(library.setAccountID(service, "someone.else@example.com")));
    expect(waitUntil([&] { return std::string(library.sourceName(service)) == "Handset B"; }),
           "another phone");
    timeline.call("getSourceName(handle) -> " + quoted(library.sourceName(service)));

    timeline.call(std::string("exitAudioProjection(handle)") + result(library.exitProjection(service)));
    expect(waitUntil([&] { return library.state(service) == 0; }), "state 0");
    timeline.call("getState(handle) -> " + std::to_string(library.state(service)));
}

/// Prints a file with every line moved in, and returns how many it has.
std::size_t printFile(const fs::path& path) {
    std::ifstream file(path);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        std::printf("  %s\n", line.c_str());
    }
    std::fflush(stdout);
    return count;
}

void printLog(const fs::path& logDir) {
    std::error_code ignored;
    std::size_t lines = 0;
    for (const fs::directory_entry& entry :
         fs::recursive_directory_iterator(logDir / "PCAudiodll", ignored)) {
        if (entry.path().extension() == ".log") {
            timeline.heading("The library's log, " + fs::relative(entry.path(), logDir).string() + ":");
            lines += printFile(entry.path());
        }
    }
    expect(lines != 0, "a log file");
}

} // namespace

int main() {
    const fs::path folder = fs::temp_directory_path() / "sonvia_demo";
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    const fs::path logDir = folder / "logs";
    fs::create_directories(logDir);
    const fs::path record = folder / "record.jsonl";
    std::ofstream(folder / "scenario.txt") << kScenario;
    SetEnvironmentVariableW(L"SONVIA_STANDIN_SCENARIO", (folder / "scenario.txt").c_str());
    SetEnvironmentVariableW(L"SONVIA_STANDIN_RECORD", record.c_str());

    {
        timeline.heading("One projection, as the host sees it:");
        const HostLibrary library;
        timeline.call("LoadLibrary(\"SonviaPCAudioDll.dll\"), eight functions found; getVersion() -> " +
                      std::to_string(library.version()));
        AudioServiceHandle* service = library.init(logDir.string().c_str(), SONVIA_LOG_INFO);
        timeline.call("initSonviaAudioService(" + quoted(logDir.string()) + ", SONVIA_LOG_INFO) -> " +
                      (service != nullptr ? "handle; QuPCAudio.exe runs" : "NULL"));
        if (service == nullptr) {
            return 1;
        }
        followProjection(library, service);
        timeline.call(std::string("uninitSonviaAudioService(handle)") + result(library.uninit(service)));
    }
    timeline.call("FreeLibrary");

    timeline.heading("What the service saw:");
    expect(printFile(record) != 0, "a record of the service");
    printLog(logDir);
    timeline.heading(failures == 0 ? "Everything happened as it should." : "Not everything happened.");
    return failures == 0 ? 0 : 1;
}
