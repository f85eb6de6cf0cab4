// Hosts that do one thing and end: how a process leaves, and with which code, can only be seen from outside.
//
// The first argument names the behaviour. Exit code 0 says that all went as a host expects, 2 and more say
// what did not; anything else was not this program's doing.
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "support/host_events.h"
#include "support/host_library.h"
#include "support/service_fixture.h"
#include "support/standin.h"
#include "support/wait.h"

namespace {

using support::event;
using support::HostApi;
using support::HostEvents;
using support::HostLibrary;

enum Result : int {
    kGood = 0,
    kNoHandle = 2,
    kNoPipe,
    kSetParamFailed,
    kNoEvent,
    kNoLogLine,
    kUnexpectedHandle,
    kUninitFailed
};

AudioServiceHandle* start(const HostApi& api) {
    return api.init(support::logFolder().c_str(), SONVIA_LOG_DEBUG);
}

Result configure(const HostApi& api, AudioServiceHandle* handle) {
    const AudioServiceParam param = support::completeParam();
    return api.setParam(handle, &param) ? kGood : kSetParamFailed;
}

Result waitForFirstEvent() {
    return HostEvents::instance().waitFor(event(SONVIA_EVENT_BUFFERING_STARTED, 0)) ? kGood : kNoEvent;
}

// From init to the first event. The library connects once; a busy machine may need longer to open the pipe than the
// library waits.
Result begin(const HostApi& api, AudioServiceHandle*& handle) {
    HostEvents::instance().reset();
    const std::size_t before = support::countInRecord("listen");
    handle = start(api);
    if (handle == nullptr) {
        return kNoHandle;
    }
    if (!support::eventually([before] { return support::countInRecord("listen") > before; })) {
        return kNoPipe;
    }
    const Result configured = configure(api, handle);
    return configured == kGood ? waitForFirstEvent() : configured;
}

Result wholeLife(const HostApi& api) {
    AudioServiceHandle* handle = nullptr;
    const Result begun = begin(api, handle);
    if (begun != kGood) {
        return begun;
    }
    api.state(handle);
    api.sourceName(handle);
    api.setAccountID(handle, "account-2");
    api.exitProjection(handle);
    return api.uninit(handle) ? kGood : kUninitFailed;
}

Result runWholeLife() {
    const HostLibrary library;
    return wholeLife(library.api());
}

// There is no service beside this program.
Result runNoService() {
    const HostLibrary library;
    if (start(library.api()) != nullptr) {
        return kUnexpectedHandle;
    }
    const bool logged = support::eventually(
        [] { return support::logText().find("QuPCAudio.exe start failed!!!!") != std::string::npos; });
    return logged ? kGood : kNoLogLine;
}

Result runNeverConfigured() {
    const HostLibrary library;
    AudioServiceHandle* handle = start(library.api());
    if (handle == nullptr) {
        return kNoHandle;
    }
    return library.api().uninit(handle) ? kGood : kUninitFailed;
}

Result runUninitAtOnce() {
    const HostLibrary library;
    AudioServiceHandle* handle = start(library.api());
    if (handle == nullptr) {
        return kNoHandle;
    }
    const Result configured = configure(library.api(), handle);
    return library.api().uninit(handle) ? configured : kUninitFailed;
}

// A handle that is never released stays reachable, as in a host that keeps it in a global.
AudioServiceHandle* keptHandle = nullptr;

// Leaves main with the loop thread running and the service connected.
Result runExitWithoutUninit() {
    return begin(support::hostApi(), keptHandle);
}

// The same while callbacks come in as fast as they can.
Result runExitInFlood() {
    const Result begun = begin(support::hostApi(), keptHandle);
    if (begun != kGood) {
        return begun;
    }
    return HostEvents::instance().waitForCount(1000) ? kGood : kNoEvent;
}

Result runExitWithoutSetParam() {
    keptHandle = start(support::hostApi());
    return keptHandle != nullptr ? kGood : kNoHandle;
}

Result runLoadOnly() {
    for (int i = 0; i < 10; ++i) {
        const HostLibrary library;
        if (library.api().version() != 0) {
            return kUnexpectedHandle;
        }
    }
    return kGood;
}

// FreeLibrary and all over again.
Result runReload() {
    for (int i = 0; i < 3; ++i) {
        const HostLibrary library;
        const Result result = wholeLife(library.api());
        if (result != kGood) {
            return result;
        }
    }
    return kGood;
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, std::function<Result()>> behaviours = {
        {"whole-life", runWholeLife},
        {"no-service", runNoService},
        {"never-configured", runNeverConfigured},
        {"uninit-at-once", runUninitAtOnce},
        {"exit-without-uninit", runExitWithoutUninit},
        {"exit-in-flood", runExitInFlood},
        {"exit-without-set-param", runExitWithoutSetParam},
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
