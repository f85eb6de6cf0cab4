// Hosts that do the same over and over: host_rounds WHAT TIMES. The exit code says what went wrong; the file
// "rounds.txt" says how many rounds went well, and the process's size after the first ones and after the last one.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "support/host_events.h"
#include "support/host_steps.h"
#include "support/process.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

using support::Result;

// The first lives load what is loaded once.
constexpr int kWarmUp = 3;

Result loadUnused() {
    const support::HostLibrary library;
    return library.api().version() == 0 ? support::kGood : support::kUnexpectedHandle;
}

Result loadAndLive() {
    const support::HostLibrary library;
    return support::wholeLife(library.api());
}

bool moveFile(const fs::path& from, const fs::path& to) {
    return support::poll(
        [&] {
            std::error_code busy; // an ended program's file may be held a moment longer
            fs::rename(from, to, busy);
            return !busy;
        },
        support::kTimeout);
}

// The service dies of the host's request; while its file is away no other one can be started.
Result loseServiceAndItsFile() {
    const support::HostApi& api = support::hostApi();
    const fs::path service = support::programFolder() / "QuPCAudio.exe";
    const fs::path away = support::programFolder() / "away.exe";
    AudioServiceHandle* handle = nullptr;
    const Result begun = support::begin(api, handle);
    if (begun != support::kGood) {
        return begun;
    }
    api.exitProjection(handle);
    support::HostEvents& events = support::HostEvents::instance();
    if (!events.waitForCount(2) || events.all().back().code != SONVIA_ERROR_CONNECTION) {
        return support::kNoEvent;
    }
    if (!moveFile(service, away)) {
        return support::kServiceFileStays;
    }
    support::configure(api, handle);
    if (!api.uninit(handle)) {
        return support::kUninitFailed;
    }
    if (support::startHost(api) != nullptr) {
        return support::kUnexpectedHandle;
    }
    return moveFile(away, service) ? support::kGood : support::kServiceFileStays;
}

Result repeat(Result (*life)(), int times) {
    support::ProcessSize before;
    Result result = support::kGood;
    int done = 0;
    while (done < times && (result = life()) == support::kGood) {
        if (++done == kWarmUp) {
            before = support::ownSize();
        }
    }
    const support::ProcessSize after = support::ownSize();
    std::ofstream("rounds.txt") << done << " " << support::sizes(before, after);
    const std::string growth = support::growth(before, after);
    std::fputs(growth.c_str(), stderr);
    return result == support::kGood && !growth.empty() ? support::kGrown : result;
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, Result (*)()> lives = {
        {"load-unused", loadUnused}, {"load-and-live", loadAndLive}, {"service-gone", loseServiceAndItsFile}};
    const auto life = lives.find(argc > 1 ? argv[1] : "");
    const int times = argc > 2 ? std::atoi(argv[2]) : 0;
    if (life == lives.end() || times <= kWarmUp) {
        std::fputs("usage: host_rounds load-unused|load-and-live|service-gone TIMES\n", stderr);
        return 1;
    }
    return repeat(life->second, times);
}
