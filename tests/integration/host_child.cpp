// Hosts that do one thing and end: how a process leaves, and with which code, can only be seen from outside.
//
// The first argument names the behaviour, the exit code says what came of it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "integration/host_settings.h"
#include "support/host_events.h"
#include "support/host_steps.h"
#include "support/pipe_peer.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

using support::HostEvents;
using support::HostLibrary;
using support::Result;

Result runWholeLife() {
    const HostLibrary library;
    return support::wholeLife(library.api());
}

Result runWholeLifeAt(int level) {
    const HostLibrary library;
    return support::wholeLife(library.api(), support::logFolder(), level);
}

// The log folder is in the file "folder.txt": no command line can hold every name that a host may pass.
Result runWholeLifeWithFolder() {
    std::ifstream file("folder.txt", std::ios::binary);
    const std::string folder{std::istreambuf_iterator<char>(file), {}};
    const HostLibrary library;
    return support::wholeLife(library.api(), folder);
}

// Threads that are there on purpose when the library has been freed, and those that the system may have added.
constexpr std::size_t kLogWriter = 1;
constexpr std::size_t kThreadsOfTheSystem = 2;

// Compared with the state before the library was loaded for the first time, which only a new process has.
Result runSettings() {
    const std::string folder = support::logFolder();
    const std::map<std::string, std::string> before = support::hostSettings();
    const std::size_t threadsBefore = support::ownSize().threads;
    {
        const HostLibrary library;
        const Result lived = support::wholeLife(library.api(), folder);
        if (lived != support::kGood) {
            return lived;
        }
    }
    Result result = support::kGood;
    for (const auto& [name, value] : support::hostSettings()) {
        if (value != before.at(name)) {
            std::printf("%s:\n%s\nis now\n%s\n", name.c_str(), before.at(name).c_str(), value.c_str());
            result = support::kSettingsChanged;
        }
    }
    const std::size_t threads = support::ownSize().threads;
    if (threads > threadsBefore + kLogWriter + kThreadsOfTheSystem) {
        std::printf("threads: %zu are now %zu\n", threadsBefore, threads);
        result = support::kSettingsChanged;
    }
    return result;
}

// This program has no service and ends at once: what is not in the log by then never will be.
Result runNoService() {
    if (support::startHost(support::hostApi()) != nullptr) {
        return support::kUnexpectedHandle;
    }
    std::_Exit(support::kGood);
}

Result runNeverConfigured() {
    const HostLibrary library;
    AudioServiceHandle* handle = support::startHost(library.api());
    if (handle == nullptr) {
        return support::kNoHandle;
    }
    return library.api().uninit(handle) ? support::kGood : support::kUninitFailed;
}

Result runUninitAtOnce() {
    const HostLibrary library;
    AudioServiceHandle* handle = support::startHost(library.api());
    if (handle == nullptr) {
        return support::kNoHandle;
    }
    const Result configured = support::configure(library.api(), handle);
    return library.api().uninit(handle) ? configured : support::kUninitFailed;
}

// A handle that is never released stays reachable, as in a host that keeps it in a global.
AudioServiceHandle* keptHandle = nullptr;

// Leaves main with the loop thread running and the service connected.
Result runExitWithoutUninit() {
    return support::begin(support::hostApi(), keptHandle);
}

// The same while callbacks come in as fast as they can.
Result runExitInFlood() {
    const Result begun = support::begin(support::hostApi(), keptHandle);
    if (begun != support::kGood) {
        return begun;
    }
    return HostEvents::instance().waitForCount(1000) ? support::kGood : support::kNoEvent;
}

Result runExitWithoutSetParam() {
    keptHandle = support::startHost(support::hostApi());
    return keptHandle != nullptr ? support::kGood : support::kNoHandle;
}

// The process ends without any tidying, as one does that is in a hurry.
Result runEndAfterProjection() {
    const Result begun = support::begin(support::hostApi(), keptHandle);
    if (begun != support::kGood) {
        return begun;
    }
    if (!support::hostApi().exitProjection(keptHandle)) {
        return support::kUnexpectedHandle;
    }
    std::_Exit(support::kGood);
}

// What a C++ host must not do: the library ends the process and says why.
Result runThrowInCallback() {
    const support::HostApi& api = support::hostApi();
    const Result begun = support::begin(api, keptHandle);
    if (begun != support::kGood) {
        return begun;
    }
    HostEvents::instance().setReaction(
        [](const support::HostEvent&) { throw std::runtime_error("the host's own trouble"); });
    api.exitProjection(keptHandle); // which the service answers with another event
    HostEvents::instance().waitForCount(3);
    return support::kUninitFailed;
}

// The loop thread cannot wait for itself: the library ends the process.
Result runUninitInCallback() {
    const support::HostApi& api = support::hostApi();
    const Result begun = support::begin(api, keptHandle);
    if (begun != support::kGood) {
        return begun;
    }
    HostEvents::instance().setReaction([&api](const support::HostEvent&) { api.uninit(keptHandle); });
    api.exitProjection(keptHandle); // which the service answers with another event
    HostEvents::instance().waitForCount(3);
    return support::kUninitFailed;
}

// The service opens its pipe when the first connect has failed, sends four events and leaves.
Result runCallInCallbacks() {
    const HostLibrary library;
    const support::HostApi& api = library.api();
    HostEvents& events = HostEvents::instance();
    AudioServiceHandle* handle = support::startHost(api);
    if (handle == nullptr) {
        return support::kNoHandle;
    }
    events.setReaction([&api, handle](const support::HostEvent&) { api.state(handle); });
    Result result = support::configure(api, handle);
    if (result == support::kGood && !events.waitForCount(1)) {
        result = support::kNoEvent;
    }
    std::ofstream("open").close();
    if (!support::poll([] { return support::countInRecord("listen") == 1; }, support::kProcessTimeout)) {
        result = support::kNoPipe;
    }
    if (result == support::kGood) {
        result = support::configure(api, handle);
    }
    if (result == support::kGood && !events.waitForCount(6)) {
        result = support::kNoEvent;
    }
    return library.api().uninit(handle) ? result : support::kUninitFailed;
}

std::size_t handlesInLog() {
    const std::vector<support::LoggedLine> lines = support::loggedLines();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [](const support::LoggedLine& line) { return line.text == "OUVLoop New"; }));
}

// One handle, and a pipe that is opened when the handle has been made: the first connect may find it or not.
Result runFirstConnect(const support::HostApi& api, bool& connected) {
    HostEvents& events = HostEvents::instance();
    events.reset();
    const std::size_t before = handlesInLog();
    std::unique_ptr<support::PipePeer> pipe;
    std::thread opener([&pipe, before] {
        if (support::poll([before] { return handlesInLog() > before; }, support::kTimeout)) {
            pipe = std::make_unique<support::PipePeer>(R"(\\.\pipe\uv_pipe.QuPCAudio)");
        }
    });
    AudioServiceHandle* handle = support::startHost(api);
    Result result = handle != nullptr ? support::configure(api, handle) : support::kNoHandle;
    opener.join();
    const auto heard = [&pipe] { return pipe != nullptr && !pipe->received().empty(); };
    if (result == support::kGood &&
        !support::poll([&] { return heard() || events.count() != 0; }, support::kTimeout)) {
        result = support::kNoEvent;
    }
    connected = heard();
    if (handle != nullptr && !api.uninit(handle)) {
        result = support::kUninitFailed;
    }
    return result;
}

// Good as soon as the very first connect of a handle has succeeded.
Result runConnectAtOnce() {
    const HostLibrary library;
    const auto end = std::chrono::steady_clock::now() + support::kTimeout;
    do {
        bool connected = false;
        const Result result = runFirstConnect(library.api(), connected);
        if (connected || result != support::kGood) {
            return result;
        }
    } while (std::chrono::steady_clock::now() < end);
    return support::kNoPipe;
}

Result runLoadOnly() {
    for (int i = 0; i < 10; ++i) {
        const HostLibrary library;
        if (library.api().version() != 0) {
            return support::kUnexpectedHandle;
        }
    }
    return support::kGood;
}

// FreeLibrary and all over again.
Result runReload() {
    for (int i = 0; i < 3; ++i) {
        const HostLibrary library;
        const Result result = support::wholeLife(library.api());
        if (result != support::kGood) {
            return result;
        }
    }
    return support::kGood;
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<Result()>> behaviours = {
        {"whole-life", runWholeLife},
        {"whole-life-at-info", [] { return runWholeLifeAt(SONVIA_LOG_INFO); }},
        {"whole-life-at-warning", [] { return runWholeLifeAt(SONVIA_LOG_WARNING); }},
        {"whole-life-with-folder", runWholeLifeWithFolder},
        {"call-in-callbacks", runCallInCallbacks},
        {"connect-at-once", runConnectAtOnce},
        {"settings", runSettings},
        {"no-service", runNoService},
        {"never-configured", runNeverConfigured},
        {"uninit-at-once", runUninitAtOnce},
        {"exit-without-uninit", runExitWithoutUninit},
        {"end-after-projection", runEndAfterProjection},
        {"exit-in-flood", runExitInFlood},
        {"exit-without-set-param", runExitWithoutSetParam},
        {"uninit-in-callback", runUninitInCallback},
        {"throw-in-callback", runThrowInCallback},
        {"load-only", runLoadOnly},
        {"reload", runReload},
    };
    const auto behaviour = behaviours.find(argc > 1 ? argv[1] : "");
    if (behaviour == behaviours.end()) {
        std::fputs("usage: host_child BEHAVIOUR\n", stderr);
        return 1;
    }
    return behaviour->second();
}
