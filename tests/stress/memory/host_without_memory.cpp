// A host whose library is refused memory: host_without_memory WHAT. It refuses one request after the other until a round saw
// none refused, and looks after each whether the library still does what it says. The file "progress.txt" tells what was
// refused and what was wrong then; a line "again" that the next process is to go on.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "log/log_record.h"
#include "stress/memory/refused_memory.h"
#include "support/effort.h"
#include "support/host_events.h"
#include "support/host_library.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/standin.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

using refused_memory::Refusing;
using support::HostEvent;

constexpr int kMostRounds = 400;
constexpr int kRoundsOfOneLife = 60;

int gFailures = 0;

void failed(const std::string& text) {
    ++gFailures;
    refused_memory::note("failed", text.c_str());
}

void onEvent(int event, int value) {
    const refused_memory::HostCode host;
    support::HostEvents::onEvent(event, value);
}

void onError(int code, int value) {
    const refused_memory::HostCode host;
    support::HostEvents::onError(code, value);
}

// The texts and the values of round n.
std::string nameOf(int n) {
    return "A handset with a name that fits no small buffer " + std::to_string(n);
}

int stateOf(int n) {
    return 1000 + n;
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

class Host {
public:
    // From init on, as many times as it takes. False when there is no handle even though nothing was refused.
    bool start(const std::string& scenario, const char* phase = nullptr) {
        refused_memory::startRound();
        mRound = 0;
        for (int attempt = 0; attempt < kMostRounds; ++attempt) {
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

    bool startLife(const char* phase = nullptr) {
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

    // setParam until the first event has come. False when it never does; what then is wrong has been told.
    bool connect(bool refuse) {
        for (int attempt = 0; attempt < kMostRounds; ++attempt) {
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
                return false; // told that it reads no more
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

    void stop(bool refuse) {
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

    // The first exception of each thread, and the first one that finds no memory for itself, have the compiler's runtime
    // keep some.
    void throwOnce() {
        const char* phase =
            keep("warm-up-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
        {
            const Refusing caller(refused_memory::kCaller, phase, 2);
            callOne("setAccountID", textOf(0));
        }
        notifications(refused_memory::kLoop, phase);
        takeRefused();
    }

    void setWarm() { mIsWarm = true; }

    // Has the service send the packets of the next round, and waits for the last one. False when the connection is of no
    // more use, which the host was told then.
    bool notifications(refused_memory::Role role, const char* phase) {
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
        const std::vector<HostEvent> wanted = {support::event(SONVIA_EVENT_BUFFERING_STARTED, 0),
                                               support::event(SONVIA_EVENT_BUFFERING_ENDED, 0),
                                               support::event(SONVIA_EVENT_FIRST_AUDIO, 0),
                                               support::event(SONVIA_EVENT_MODE_CHANGED, n)};
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

    // One call, refused on one thread, and the packet that it says it has sent; told by one that follows it.
    void sends(refused_memory::Role role, const char* what) {
        const std::string phase = std::string(what) + (role == refused_memory::kCaller ? "" : ".loop");
        const char* name = keep(phase);
        for (int round = 0; round < kMostRounds; ++round) {
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

    void asks() {
        for (int round = 0; round < kMostRounds; ++round) {
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

    bool loses(const char* phase) {
        const std::size_t before = mEvents.count();
        Refusing refusing(refused_memory::kLoop, phase);
        support::killProcess(mStandin.pid(), "QuPCAudio.exe");
        const bool told = support::poll([&] { return mEvents.count() > before; }, support::kTimeout);
        const bool refused = refusing.end();
        // It may be reported as a read that gets no memory.
        if (!told || (!refused && mEvents.all()[before].code != SONVIA_ERROR_CONNECTION)) {
            failed("the loss of the connection was not reported");
        }
        return refused;
    }

    // A service without a pipe: every connect fails.
    void connectsInVain() {
        ++mLife;
        if (!start("guard 600\nno-pipe\n")) {
            return;
        }
        for (int round = 0; round < kMostRounds; ++round) {
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
                failed("a connect that failed was told wrongly");
            }
            if (!refused) {
                break;
            }
        }
        stop(false);
    }

    bool takeRefused() { return std::exchange(mRefused, false); }

    int round() const { return mRound; }

    // Fills what the log keeps for later lines.
    void talk() {
        for (int i = 0; i < 2000; ++i) {
            const refused_memory::LibraryCall call;
            mApi.state(mHandle);
        }
    }

    void expectState(int n, bool mayBeOlder) {
        const refused_memory::LibraryCall call;
        const std::uint32_t state = mApi.state(mHandle);
        const char* text = mApi.sourceName(mHandle);
        const refused_memory::HostCode host;
        const std::string name = text;
        const bool isOld =
            n == 1 ? state == SONVIA_STATE_UNKNOWN : state == static_cast<std::uint32_t>(stateOf(n - 1));
        if (state != static_cast<std::uint32_t>(stateOf(n)) && !(mayBeOlder && isOld)) {
            failed("getState gave " + std::to_string(state) + " after " + std::to_string(stateOf(n)));
        }
        if (name != nameOf(n) && !(mayBeOlder && name == (n == 1 ? "phone" : nameOf(n - 1)))) {
            failed("getSourceName gave " + name + " after " + nameOf(n));
        }
    }

    // The log works: a line that is written now gets into it.
    void expectLog() {
        const std::string before = support::logText();
        {
            const refused_memory::LibraryCall call;
            mApi.uninit(nullptr);
        }
        if (!support::poll([&] { return support::logText().size() > before.size(); }, support::kTimeout)) {
            failed("no line gets into the log any more");
        }
    }

private:
    AudioServiceHandle* init() {
        const std::string folder = support::logFolder();
        const refused_memory::LibraryCall call;
        return mApi.init(folder.c_str(), SONVIA_LOG_DEBUG);
    }

    AudioServiceHandle* refusing(const char* phase, bool& refused) {
        Refusing caller(refused_memory::kCaller, phase);
        Refusing writer(refused_memory::kWriter, phase);
        AudioServiceHandle* const handle = init();
        caller.end();
        writer.end();
        refused = caller.happened() || writer.happened();
        return handle;
    }

    bool setParam(const std::string& pcName) {
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

    bool callOne(const std::string& what, const std::string& text) {
        if (what == "setParam") {
            return setParam(text);
        }
        const refused_memory::LibraryCall call;
        return what == "exit" ? mApi.exitProjection(mHandle) : mApi.setAccountID(mHandle, text.c_str());
    }

    // Sends one more packet, and waits for it: those before it have arrived then.
    // False, too, as soon as the log says from that place on that memory has run out.
    bool marked(const std::string& text, std::size_t logged = std::string::npos) {
        callOne("setAccountID", text);
        bool arrived = false;
        support::poll(
            [&] {
                arrived = sent("accountID", text);
                return arrived || (logged != std::string::npos && hasLackOfMemory(logged));
            },
            std::chrono::seconds(3));
        return arrived;
    }

    static std::string
    textOf(int n) { // of one length: a shorter account would keep the tail of the one before
        return "a text of its own that fits no small buffer " + std::to_string(100000 + n);
    }

    static bool has(const std::vector<HostEvent>& events, const HostEvent& wanted) {
        return std::find(events.begin(), events.end(), wanted) != events.end();
    }

    const char* keep(const std::string& text) {
        mKept.push_back(std::make_unique<std::string>(text));
        return mKept.back()->c_str();
    }

    // Until the event has come, or an error, or, from that place of the log on, a line that memory has run out.
    void waitForOutcome(const HostEvent& wanted, const char* what, std::size_t before = 0,
                        std::size_t logged = std::string::npos) {
        const bool came = support::poll(
            [&] {
                const std::vector<HostEvent> events = mEvents.all();
                return has(events, wanted) ||
                       std::any_of(events.begin() + static_cast<std::ptrdiff_t>(before), events.end(),
                                   [](const HostEvent& e) { return e.isError; }) ||
                       (logged != std::string::npos && hasLackOfMemory(logged));
            },
            support::kTimeout);
        if (!came) {
            failed(std::string(what) + ": nothing came");
        }
    }

    static bool hasLackOfMemory(std::size_t logged) {
        const std::string text = support::logText().substr(logged);
        return text.find("out of memory") != std::string::npos ||
               text.find("bad_alloc") != std::string::npos || text.find("malloc size") != std::string::npos;
    }

    static bool saysLackOfMemory(std::size_t logged) {
        return support::poll([logged] { return hasLackOfMemory(logged); }, std::chrono::seconds(3));
    }

    bool sent(const std::string& key, const std::string& text) {
        const std::vector<support::Json> packets = mStandin.packets(support::kNotify);
        return std::any_of(packets.begin(), packets.end(), [&](const support::Json& packet) {
            for (const support::Json& entry : packet.at("entries").list()) {
                if (entry.at("key").text() == key && entry.at("value").text() == text) {
                    return true;
                }
                if (entry.at("key").text() == "KORUInfo" &&
                    support::entryOf(entry.at("value").list(), key == "pcName" ? key : "sn")
                            .textOf("value") == text) {
                    return true;
                }
            }
            return false;
        });
    }

    int countExits() {
        return static_cast<int>(mStandin.packets(support::kNotify, "exitAudioProjection").size());
    }

    void expectDeviceInformation(const std::string& pcName) {
        if (!sent("pcName", pcName)) {
            failed("the device information did not arrive whole");
        }
        for (const support::Json& packet : mStandin.recorded("packet")) {
            if (packet.has("malformed")) {
                failed("a packet arrived that is not whole");
            }
        }
    }

    void expectNoService(const std::string& after) {
        // What was ended may need a moment to be gone.
        if (!support::poll([] { return support::running("QuPCAudio.exe") == 0; }, std::chrono::seconds(3))) {
            failed("a service is left behind after " + after);
            for (const support::Json& started : mStandin.recorded("start")) {
                support::killProcess(started.numberOf("pid"), "QuPCAudio.exe");
            }
        }
    }

    void expectNoBlocks() {
        std::vector<std::string> left;
        // The log's thread holds some while it writes.
        support::poll(
            [&] {
                left = refused_memory::blocksLeft(sizeof(orvel::log4z::LogRecord));
                return left.empty();
            },
            std::chrono::seconds(1));
        for (const std::string& block : left) {
            ++gFailures;
            refused_memory::note("leaked", block.c_str());
        }
    }

    const support::HostApi& mApi = support::hostApi();
    support::HostEvents& mEvents = support::HostEvents::instance();
    support::Standin mStandin;
    AudioServiceHandle* mHandle = nullptr;
    std::vector<std::unique_ptr<std::string>> mKept;
    int mLife = 0;
    int mRound = 0;
    int mSent = 0;
    bool mRefused = false;
    bool mIsWarm = false;
};

// Loads what is loaded once, and has every thread seen.
void warmUp(Host& host) {
    refused_memory::newThreadsAre(refused_memory::kWriter);
    host.startLife();
    support::poll([] { return !support::logText().empty(); }, support::kTimeout);
    refused_memory::newThreadsAre(refused_memory::kLoop);
    host.connect(false);
    host.notifications(refused_memory::kLoop, nullptr);
    host.talk();
    host.throwOnce();
    host.stop(false);
    host.setWarm();
}

void wholeLives() {
    Host host;
    warmUp(host);
    for (int life = 0; life < kMostRounds; ++life) {
        if (!host.startLife("init")) {
            return;
        }
        if (host.connect(true)) {
            host.notifications(refused_memory::kLoop, nullptr);
        }
        host.stop(true);
        if (!host.takeRefused()) {
            return;
        }
    }
    failed("lives never came to an end");
}

void calls() {
    Host host;
    warmUp(host);
    host.startLife();
    host.connect(false);
    host.notifications(refused_memory::kLoop, nullptr);
    for (const refused_memory::Role role : {refused_memory::kCaller, refused_memory::kLoop}) {
        host.sends(role, "setAccountID");
        host.sends(role, "exit");
        host.sends(role, "setParam");
    }
    host.asks();
    host.notifications(refused_memory::kLoop, nullptr);
    host.stop(false);
}

void notifications() {
    Host host;
    warmUp(host);
    for (int life = 0; life < kMostRounds; ++life) {
        host.startLife();
        host.connect(false);
        while (host.round() < kRoundsOfOneLife &&
               host.notifications(refused_memory::kLoop, "notifications")) {
            if (!host.takeRefused()) {
                host.stop(false);
                return;
            }
        }
        host.takeRefused();
        host.stop(false);
    }
    failed("notifications never came to an end");
}

void losses() {
    Host host;
    warmUp(host);
    for (int life = 0; life < kMostRounds; ++life) {
        host.startLife();
        host.connect(false);
        const bool refused = host.loses("loss");
        host.stop(false);
        if (!refused) {
            return;
        }
    }
    failed("losses never came to an end");
}

void connectsInVain() {
    Host host;
    warmUp(host);
    host.connectsInVain();
}

// The log is made in the first init of a process that has the memory for it, and only then.
void firstInit() {
    Host host;
    for (int attempt = 0; attempt < kMostRounds; ++attempt) {
        refused_memory::newThreadsAre(refused_memory::kWriter);
        if (!host.startLife("first")) {
            return;
        }
        const bool refused = host.takeRefused();
        refused_memory::newThreadsAre(refused_memory::kLoop);
        if (host.connect(false)) {
            host.notifications(refused_memory::kLoop, nullptr);
        }
        host.stop(false);
        if (refused && support::logText().empty()) {
            continue; // the next init is the log's first one again
        }
        host.expectLog();
        if (refused) {
            refused_memory::note("again", "");
        }
        return;
    }
    failed("the first init never came to an end");
}

} // namespace

int main(int argc, char** argv) {
    const std::map<std::string, void (*)()> all = {
        {"first-init", firstInit},        {"lives", wholeLives}, {"calls", calls},
        {"notifications", notifications}, {"losses", losses},    {"connects-in-vain", connectsInVain}};
    const auto what = all.find(argc > 1 ? argv[1] : "");
    if (what == all.end()) {
        std::fputs(
            "usage: host_without_memory first-init|lives|calls|notifications|losses|connects-in-vain\n",
            stderr);
        return 1;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::current_path())) {
        if (entry.path().filename().string().rfind("go-", 0) == 0) { // of a process before this one
            fs::remove(entry.path());
        }
    }
    support::hostApi();
    refused_memory::begin("progress.txt", support::longForm() ? 64 : 1);
    what->second();
    refused_memory::note("ended", "");
    return 0;
}
