// Hosts that do the same over and over: host_rounds WHAT TIMES. The exit code says what went wrong; the file
// "sizes.txt" tells the process's size after the first rounds and after the last one.
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

constexpr std::size_t kMegabyte = 1024U * 1024U;
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
    return support::eventually([&] {
        std::error_code busy; // an ended program's file may be held a moment longer
        fs::rename(from, to, busy);
        return !busy;
    });
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
    for (int i = 0; i < times; ++i) {
        const Result result = life();
        if (result != support::kGood) {
            return result;
        }
        if (i + 1 == kWarmUp) {
            before = support::ownSize();
        }
    }
    const support::ProcessSize after = support::ownSize();
    std::ofstream("sizes.txt") << "handles " << before.handles << " -> " << after.handles << ", threads "
                               << before.threads << " -> " << after.threads << ", bytes "
                               << before.memoryBytes << " -> " << after.memoryBytes;
    const bool level = after.handles <= before.handles + 5 && after.threads <= before.threads + 2 &&
                       after.memoryBytes <= before.memoryBytes + 8 * kMegabyte;
    return level ? support::kGood : support::kGrown;
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
