#include "stress/memory/starved_host.h"

#include <algorithm>
#include <chrono>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

using refused_memory::Refusing;
using support::HostEvent;

namespace {

void onEvent(int event, int value) {
    const refused_memory::HostCode host;
    support::HostEvents::onEvent(event, value);
}

void onError(int code, int value) {
    const refused_memory::HostCode host;
    support::HostEvents::onError(code, value);
}

std::string scenarioOf(int life) {
    std::string text = "guard 600\nwait packet key KORUInfo guard 600000\nnotify int buffering-start 1\n";
    for (int n = 1; n <= kRoundsOfOneLife; ++n) {
        const std::string number = std::to_string(n);
        text += "wait file go-" + std::to_string(life) + "-" + number + " guard 600000\n";
        text += "packet 34\nint player-state " + std::to_string(stateOf(n)) + "\nstring phone-name \"" +
                nameOf(n) + "\"\nint buffering-start 1\nint buffering-end 1\nint first-audiopcm 1\nend\n";
        text += "notify int change-mode " + number + "\n";
    }
    return text;
}

} // namespace

bool StarvedHost::start(const std::string& scenario, const char* phase) {
    refused_memory::startRound();
    mRound = 0;
    for (int attempt = 0; attempt < kMaxRounds; ++attempt) {
        mEvents.reset();
        mStandin.play(scenario);
        bool refused = false;
        mHandle = phase != nullptr ? refusing(phase, refused) : init();
        mRefused = mRefused || refused;
        if (mHandle != nullptr) {
            return true;
        }
        expectNoService("init that gave no handle");
        if (!refused) {
            failed("init gave no handle though nothing was refused");
            return false;
        }
    }
    failed("init never came to an end");
    return false;
}

bool StarvedHost::startLife(const char* phase) {
    ++mLife;
    if (!start(scenarioOf(mLife), phase)) {
        return false;
    }
    if (!mStandin.waitForEvent("listen")) {
        failed("the service did not open its pipe");
        return false;
    }
    return true;
}

bool StarvedHost::connect(bool refuse) {
    for (int attempt = 0; attempt < kMaxRounds; ++attempt) {
        mEvents.reset();
        const std::size_t logged = support::logText().size();
        bool taken = false;
        bool refused = false;
        {
            Refusing caller(refused_memory::kCaller, refuse ? "setParam" : "");
            Refusing loop(refused_memory::kLoop, refuse ? "connect" : "");
            if (!refuse) {
                caller.end();
                loop.end();
            }
            taken = setParam("pc-6");
            caller.end();
            if (taken) {
                waitForOutcome(support::event(SONVIA_EVENT_BUFFERING_STARTED, 0), "connect", 0, logged);
            }
            loop.end();
            refused = refuse && (caller.happened() || loop.happened());
        }
        mRefused = mRefused || refused;
        if (!taken && refused) {
            continue;
        }
        if (!taken) {
            failed("setParam gave false though nothing was refused");
            return false;
        }
        const std::vector<HostEvent> events = mEvents.all();
        if (has(events, support::event(SONVIA_EVENT_BUFFERING_STARTED, 0))) {
            expectDeviceInformation("pc-6");
            return true;
        }
        if (has(events, support::error(SONVIA_ERROR_CONNECTION, 0)) && refused) {
            continue; // the connect may be tried again
        }
        if (!events.empty() && refused) {
            return false; // it was reported that nothing more is read
        }
        if (!refused || !saysLackOfMemory(logged)) {
            failed("no connection: neither an event nor an error");
            return false;
        }
        // The log says that something is lost. What is sent now shows whether it is the device information.
        if (!marked(textOf(++mSent)) || sent("pcName", "pc-6")) {
            failed("no connection, and the log says what is not so");
        }
        return false;
    }
    failed("setParam never came to an end");
    return false;
}

void StarvedHost::stop(bool refuse) {
    {
        Refusing caller(refused_memory::kCaller, "uninit");
        Refusing loop(refused_memory::kLoop, "close");
        if (!refuse) {
            caller.end();
            loop.end();
        }
        const refused_memory::LibraryCall call;
        if (!mApi.uninit(mHandle)) {
            const refused_memory::HostCode host;
            failed("uninit gave false");
        }
        mRefused = caller.end() || mRefused;
        mRefused = loop.end() || mRefused;
    }
    mHandle = nullptr;
    expectNoService("uninit");
    if (mIsWarm) { // before that, what is made once for a process is made
        expectNoBlocks();
    }
}

void StarvedHost::throwOnce() {
    const char* phase =
        keep("warm-up-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    {
        const Refusing caller(refused_memory::kCaller, phase, 2);
        callOne("setAccountID", textOf(0));
    }
    notifications(refused_memory::kLoop, phase);
    takeRefused();
}

bool StarvedHost::notifications(refused_memory::Role role, const char* phase) {
    const int n = ++mRound;
    const std::size_t before = mEvents.count();
    bool refused = false;
    {
        Refusing refusing(role, phase != nullptr ? phase : "");
        if (phase == nullptr) {
            refusing.end();
        }
        mStandin.signal("go-" + std::to_string(mLife) + "-" + std::to_string(n));
        waitForOutcome(support::event(SONVIA_EVENT_MODE_CHANGED, n), "notifications", before);
        refused = refusing.end();
    }
    mRefused = mRefused || refused;
    std::vector<HostEvent> events = mEvents.all();
    events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(before));
    const bool isTold =
        std::any_of(events.begin(), events.end(), [](const HostEvent& e) { return e.isError; });
    const std::vector<HostEvent> wanted = {
        support::event(SONVIA_EVENT_BUFFERING_STARTED, 0), support::event(SONVIA_EVENT_BUFFERING_ENDED, 0),
        support::event(SONVIA_EVENT_FIRST_AUDIO, 0), support::event(SONVIA_EVENT_MODE_CHANGED, n)};
    for (const HostEvent& got : events) {
        if (!got.isError && !has(wanted, got)) {
            failed("forged event " + std::to_string(got.code) + " " + std::to_string(got.value));
        }
    }
    for (const HostEvent& one : wanted) {
        if (!isTold && !has(events, one)) {
            failed("lost event " + std::to_string(one.code) + " " + std::to_string(one.value));
        }
    }
    expectState(n, isTold);
    return !isTold;
}

void StarvedHost::sends(refused_memory::Role role, const char* what) {
    const std::string phase = std::string(what) + (role == refused_memory::kCaller ? "" : ".loop");
    const char* name = keep(phase);
    for (int round = 0; round < kMaxRounds; ++round) {
        const int n = ++mSent;
        const std::string text = textOf(n);
        const int exits = countExits();
        const std::size_t logged = support::logText().size();
        bool result = false;
        bool refused = false;
        {
            Refusing refusing(role, name);
            result = callOne(what, text);
            if (role == refused_memory::kCaller) {
                refused = refusing.end();
            }
            if (!marked("m" + text.substr(1), logged)) {
                refused = refusing.end();
                if (!refused || !marked("n" + text.substr(1))) {
                    failed(phase + ": nothing is sent any more");
                    return;
                }
                if (!saysLackOfMemory(logged)) {
                    failed(phase + ": a packet is lost, and nothing says so");
                }
            }
            refused = refusing.end();
        }
        const bool arrived = std::string(what) == "setParam"       ? sent("pcName", text)
                             : std::string(what) == "setAccountID" ? sent("accountID", text)
                                                                   : countExits() > exits;
        if (result && !arrived && !(refused && saysLackOfMemory(logged))) {
            failed(phase + " gave true, its packet is lost, and nothing says so");
        }
        if (!result && !refused) {
            failed(phase + " gave false though nothing was refused");
        }
        mRefused = mRefused || refused;
        if (!refused) {
            return;
        }
    }
    failed(phase + " never came to an end");
}

void StarvedHost::asks() {
    for (int round = 0; round < kMaxRounds; ++round) {
        std::uint32_t state = 0;
        std::string name;
        bool refused = false;
        {
            Refusing refusing(refused_memory::kCaller, "getState");
            {
                const refused_memory::LibraryCall call;
                state = mApi.state(mHandle);
            }
            refused = refusing.end();
        }
        {
            Refusing refusing(refused_memory::kCaller, "getSourceName");
            const char* text = nullptr;
            {
                const refused_memory::LibraryCall call;
                text = mApi.sourceName(mHandle);
            }
            refused = refusing.end() || refused;
            name = text;
        }
        if (state != static_cast<std::uint32_t>(stateOf(mRound))) {
            failed("getState gave " + std::to_string(state));
        }
        if (name != nameOf(mRound)) {
            failed("getSourceName gave " + name);
        }
        if (!refused) {
            return;
        }
    }
    failed("getState never came to an end");
}

bool StarvedHost::loses(const char* phase) {
    const std::size_t before = mEvents.count();
    Refusing refusing(refused_memory::kLoop, phase);
    support::killProcess(mStandin.pid(), "QuPCAudio.exe");
    const bool reported = support::poll([&] { return mEvents.count() > before; }, support::kTimeout);
    const bool refused = refusing.end();
    // It may be reported as a read whose allocation failed.
    if (!reported || (!refused && mEvents.all()[before].code != SONVIA_ERROR_CONNECTION)) {
        failed("the loss of the connection was not reported");
    }
    return refused;
}

void StarvedHost::connectsInVain() {
    ++mLife;
    if (!start("guard 600\nno-pipe\n")) {
        return;
    }
    for (int round = 0; round < kMaxRounds; ++round) {
        mEvents.reset();
        bool taken = false;
        bool refused = false;
        {
            Refusing caller(refused_memory::kCaller, "setParam.vain");
            Refusing loop(refused_memory::kLoop, "connect.vain");
            taken = setParam("pc-6");
            caller.end();
            if (taken && !support::poll([&] { return mEvents.count() > 0; }, support::kTimeout)) {
                failed("a failed connect was not reported");
                break;
            }
            loop.end();
            refused = caller.happened() || loop.happened();
        }
        if (!taken && !refused) {
            failed("setParam gave false though nothing was refused");
        }
        if (taken && !(mEvents.all()[0] == support::error(SONVIA_ERROR_CONNECTION, 0))) {
            failed("a connect that failed was reported wrongly");
        }
        if (!refused) {
            break;
        }
    }
    stop(false);
}

void StarvedHost::talk() {
    for (int i = 0; i < 2000; ++i) {
        const refused_memory::LibraryCall call;
        mApi.state(mHandle);
    }
}

AudioServiceHandle* StarvedHost::init() {
    const std::string folder = support::logFolder();
    const refused_memory::LibraryCall call;
    return mApi.init(folder.c_str(), SONVIA_LOG_DEBUG);
}

AudioServiceHandle* StarvedHost::refusing(const char* phase, bool& refused) {
    Refusing caller(refused_memory::kCaller, phase);
    Refusing writer(refused_memory::kWriter, phase);
    AudioServiceHandle* const handle = init();
    caller.end();
    writer.end();
    refused = caller.happened() || writer.happened();
    return handle;
}

bool StarvedHost::setParam(const std::string& pcName) {
    static int context = 0;
    AudioServiceParam param = support::completeParam();
    param.onEvent = onEvent;
    param.onError = onError;
    param.context = &context;
    std::fill(std::begin(param.pcName), std::end(param.pcName), '\0');
    pcName.copy(param.pcName, sizeof param.pcName - 1);
    const refused_memory::LibraryCall call;
    return mApi.setParam(mHandle, &param);
}

bool StarvedHost::callOne(const std::string& what, const std::string& text) {
    if (what == "setParam") {
        return setParam(text);
    }
    const refused_memory::LibraryCall call;
    return what == "exit" ? mApi.exitProjection(mHandle) : mApi.setAccountID(mHandle, text.c_str());
}

const char* StarvedHost::keep(const std::string& text) {
    mKept.push_back(std::make_unique<std::string>(text));
    return mKept.back()->c_str();
}
