// A desktop host in small: loads the DLL, plays one projection against the stand-in service, and shows what each side
// saw. Ends with 0 only when everything that had to happen did.

#include "host_library.h"
#include "service_record.h"
#include "timeline.h"

#include <CLI/CLI.hpp>
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

/// The scenario of which the host knows what must come.
constexpr const char* kExpected = "happy";

struct Options {
    std::string scenario = kExpected; // a file, or a name of the gallery beside QuPCAudio.exe
    std::string library = "SonviaPCAudioDll.dll";
    std::string color = "auto";
    std::string folder = (fs::temp_directory_path() / "sonvia_demo").string();
};

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
    expect(std::string(library.sourceName(service)) == "Handset A", "the phone's name");

    timeline.call(std::string("setAccountID(handle, \"someone.else@example.com\")") +
                  result(library.setAccountID(service, "someone.else@example.com")));
    timeline.call(std::string("exitAudioProjection(handle)") + result(library.exitProjection(service)));
    expect(waitUntil([&] { return library.state(service) == 0; }), "state 0");
    timeline.call("getState(handle) -> " + std::to_string(library.state(service)));
}

/// Any other scenario: the calls of a session, and whatever comes of them. No event need come at all.
void followAnything(const HostLibrary& library, AudioServiceHandle* service) {
    using namespace std::chrono_literals;
    constexpr int kAttempts = 30;
    const AudioServiceParam param = identity();
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::size_t before = timeline.count();
        timeline.call(std::string("setParam(handle, {callbacks, six texts})") +
                      result(library.setParam(service, &param)));
        timeline.waitForQuiet(200ms);
        if (timeline.count() == before || !timeline.lastWas(SONVIA_ERROR_CONNECTION, 0)) {
            break;
        }
    }
    timeline.waitForQuiet(1s);
    timeline.call("getState(handle) -> " + std::to_string(library.state(service)));
    timeline.call("getSourceName(handle) -> " + quoted(library.sourceName(service)));
    timeline.call(std::string("setAccountID(handle, \"someone.else@example.com\")") +
                  result(library.setAccountID(service, "someone.else@example.com")));
    timeline.call(std::string("exitAudioProjection(handle)") + result(library.exitProjection(service)));
    timeline.waitForQuiet(500ms);
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

/// A terminal shows UTF-8 and colours from here on.
bool prepareTerminal() {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(output, &mode) == 0) {
        return false;
    }
    SetConsoleOutputCP(CP_UTF8);
    return SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void printPicture(const std::vector<Mark>& services, const std::string& color) {
    std::vector<Mark> marks = timeline.marks();
    marks.insert(marks.end(), services.begin(), services.end());
    const bool isTerminal = prepareTerminal();
    timeline.heading("The same on one time axis:");
    std::printf("%s", draw(std::move(marks), color == "always" || (color == "auto" && isTerminal)).c_str());
    std::fflush(stdout);
}

/// From LoadLibrary to FreeLibrary; false when the service cannot be started.
bool session(const Options& options, const fs::path& logDir) {
    timeline.heading("One session, as the host sees it:");
    const HostLibrary library(options.library);
    timeline.call("LoadLibrary, eight functions found; getVersion() -> " + std::to_string(library.version()));
    AudioServiceHandle* service = library.init(logDir.string().c_str(), SONVIA_LOG_INFO);
    timeline.call("initSonviaAudioService(" + quoted(logDir.string()) + ", SONVIA_LOG_INFO) -> " +
                  (service != nullptr ? "handle; QuPCAudio.exe runs" : "NULL"));
    if (service == nullptr) {
        return false;
    }
    options.scenario == kExpected ? followProjection(library, service) : followAnything(library, service);
    timeline.call(std::string("uninitSonviaAudioService(handle)") + result(library.uninit(service)));
    return true;
}

int show(const Options& options) {
    const fs::path folder = fs::absolute(options.folder);
    std::error_code ignored;
    const fs::path logDir = folder / "logs";
    const fs::path record = folder / "record.jsonl";
    fs::remove_all(logDir, ignored);
    fs::remove(record, ignored);
    fs::create_directories(logDir);
    SetEnvironmentVariableA("SONVIA_STANDIN_SCENARIO", options.scenario.c_str());
    SetEnvironmentVariableW(L"SONVIA_STANDIN_RECORD", record.c_str());
    SetEnvironmentVariableW(L"SONVIA_STANDIN_RECORD_SENT", L"1");

    if (!session(options, logDir)) {
        return 1;
    }
    timeline.call("FreeLibrary");
    const std::vector<Mark> services = serviceMarks(record);
    expect(!services.empty(), "a record of the service");
    printLog(logDir);
    printPicture(services, options.color);
    for (const Mark& mark : services) {
        if (mark.text.rfind("scenario-error", 0) == 0) {
            expect(false, mark.text.c_str());
        }
    }
    const char* good = options.scenario == kExpected ? "Everything happened as it should." : "That was it.";
    timeline.heading(failures == 0 ? good : "Not everything happened.");
    return failures == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Plays one session against the stand-in service and shows what each side saw.", "demo_host");
    app.add_option("--scenario", options.scenario, "file, or name that `QuPCAudio.exe --gallery` lists")
        ->capture_default_str();
    app.add_option("--library", options.library, "another build of the DLL")->transform([](std::string path) {
        return fs::absolute(path).string();
    });
    app.add_option("--folder", options.folder,
                   "for logs\\ and record.jsonl, which replace those of an earlier run");
    app.add_option("--color", options.color, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->take_last();
    CLI11_PARSE(app, argc, argv);
    return show(options);
}
