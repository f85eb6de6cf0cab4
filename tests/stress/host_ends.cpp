// A host that ends in the middle of things: host_ends STATE END CODE.
//
// Brings the library into the state, writes the time into the file "ending", and ends in that way with that exit code.
// Codes below 20 say that the state was not reached.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>

#include "stress/process_ends.h"
#include "support/host_events.h"
#include "support/host_steps.h"
#include "support/wait.h"

namespace {

using support::HostEvents;
using support::Result;

// Both stay until the process is gone, as in a host that keeps them in globals; only END "free" frees the library.
support::HostLibrary* library = nullptr;
AudioServiceHandle* handle = nullptr;

Result untouched() {
    return support::kGood;
}

Result loaded() {
    library = new support::HostLibrary;
    return library->api().version() == 0 ? support::kGood : support::kUnexpectedHandle;
}

Result started() {
    loaded();
    return support::startAndWaitForPipe(library->api(), handle);
}

// The connect may not be over.
Result configured() {
    const Result result = started();
    return result == support::kGood ? support::configure(library->api(), handle) : result;
}

Result connected() {
    loaded();
    return support::begin(library->api(), handle);
}

Result flooded() {
    const Result result = connected();
    if (result != support::kGood) {
        return result;
    }
    return HostEvents::instance().waitForCount(1000) ? support::kGood : support::kNoEvent;
}

// The service has no pipe, or leaves: one error.
Result failed() {
    loaded();
    handle = support::startHost(library->api());
    if (handle == nullptr) {
        return support::kNoHandle;
    }
    const Result result = support::configure(library->api(), handle);
    if (result != support::kGood) {
        return result;
    }
    return HostEvents::instance().waitForCount(1) ? support::kGood : support::kNoEvent;
}

Result lost() {
    const Result result = connected();
    if (result != support::kGood) {
        return result;
    }
    library->api().exitProjection(handle); // the service dies of it
    return HostEvents::instance().waitForCount(2) ? support::kGood : support::kNoEvent;
}

Result released() {
    const Result result = connected();
    if (result != support::kGood) {
        return result;
    }
    return library->api().uninit(handle) ? support::kGood : support::kUninitFailed;
}

void noteTime() {
    std::ofstream("ending") << std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count();
}

void end(const std::string& way, int code) {
    noteTime();
    if (way == "free") {
        delete library;
        return;
    }
    const auto ends = stress::processEnds();
    const auto found = ends.find(way);
    if (found != ends.end()) {
        found->second(code);
    }
}

// The loop thread ends the process, or is held inside the callback while another thread does.
Result inCallback(const std::string& way, int code, bool byCallback) {
    HostEvents::instance().reset();
    const Result result = started();
    if (result != support::kGood) {
        return result;
    }
    HostEvents::instance().setReaction([way, code, byCallback](const support::HostEvent& what) {
        if (what.isError) {
            return; // a connect that failed: the state is not reached
        }
        if (byCallback) {
            end(way, code);
        }
        std::this_thread::sleep_for(std::chrono::minutes(2));
    });
    support::configure(library->api(), handle);
    if (!HostEvents::instance().waitFor(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0))) {
        return support::kNoEvent;
    }
    if (byCallback) {
        std::this_thread::sleep_for(std::chrono::minutes(2));
    }
    return support::kGood;
}

Result reach(const std::string& state) {
    const std::map<std::string, Result (*)()> states = {
        {"untouched", untouched},    {"loaded", loaded},       {"started", started},
        {"configured", configured},  {"connected", connected}, {"flooded", flooded},
        {"never-connected", failed}, {"lost", lost},           {"released", released}};
    const auto found = states.find(state);
    return found != states.end() ? found->second() : support::kNoLogLine;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: host_ends STATE END CODE\n", stderr);
        return 1;
    }
    const std::string state = argv[1];
    const std::string way = argv[2];
    const int code = std::atoi(argv[3]);
    const bool byCallback = state == "in-callback";
    const Result result =
        byCallback || state == "behind-callback" ? inCallback(way, code, byCallback) : reach(state);
    if (result != support::kGood) {
        return result;
    }
    end(way, code);
    return code;
}
