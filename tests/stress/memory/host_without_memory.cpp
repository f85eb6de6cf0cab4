// A host whose library is refused memory: host_without_memory WHAT. It refuses one request after the other until a round saw
// none refused, and looks after each whether the library still does what it says. The file "progress.txt" says what was
// refused and what was wrong then; a line "again" that the next process is to go on.
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "stress/memory/refused_memory.h"
#include "stress/memory/starved_host.h"
#include "support/effort.h"
#include "support/host_library.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

// Loads what is loaded once, and has every thread seen.
void warmUp(StarvedHost& host) {
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
    StarvedHost host;
    warmUp(host);
    for (int life = 0; life < kMaxRounds; ++life) {
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
    StarvedHost host;
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
    StarvedHost host;
    warmUp(host);
    for (int life = 0; life < kMaxRounds; ++life) {
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
    StarvedHost host;
    warmUp(host);
    for (int life = 0; life < kMaxRounds; ++life) {
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
    StarvedHost host;
    warmUp(host);
    host.connectsInVain();
}

// The log is made in the first init of a process that has the memory for it, and only then.
void firstInit() {
    StarvedHost host;
    for (int attempt = 0; attempt < kMaxRounds; ++attempt) {
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
