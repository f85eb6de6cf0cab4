// What must hold after a round: nothing forged, nothing lost silently, nothing leaked.
#include "stress/memory/starved_host.h"

#include <algorithm>
#include <chrono>

#include "log/log_record.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

using support::HostEvent;

void failed(const std::string& text) {
    refused_memory::note("failed", text.c_str());
}

std::string nameOf(int n) {
    return "A handset with a name that fits no small buffer " + std::to_string(n);
}

int stateOf(int n) {
    return 1000 + n;
}

void StarvedHost::expectState(int n, bool mayBeOlder) {
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

void StarvedHost::expectLog() {
    const std::string before = support::logText();
    {
        const refused_memory::LibraryCall call;
        mApi.uninit(nullptr);
    }
    if (!support::poll([&] { return support::logText().size() > before.size(); }, support::kTimeout)) {
        failed("no line gets into the log any more");
    }
}

bool StarvedHost::marked(const std::string& text, std::size_t logged) {
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

std::string StarvedHost::textOf(int n) {
    return "a text of its own that fits no small buffer " + std::to_string(100000 + n);
}

bool StarvedHost::has(const std::vector<HostEvent>& events, const HostEvent& wanted) {
    return std::find(events.begin(), events.end(), wanted) != events.end();
}

void StarvedHost::waitForOutcome(const HostEvent& wanted, const char* what, std::size_t before,
                                 std::size_t logged) {
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

bool StarvedHost::hasLackOfMemory(std::size_t logged) {
    const std::string text = support::logText().substr(logged);
    return text.find("out of memory") != std::string::npos || text.find("bad_alloc") != std::string::npos ||
           text.find("malloc size") != std::string::npos;
}

bool StarvedHost::saysLackOfMemory(std::size_t logged) {
    return support::poll([logged] { return hasLackOfMemory(logged); }, std::chrono::seconds(3));
}

bool StarvedHost::sent(const std::string& key, const std::string& text) {
    const std::vector<support::Json> packets = mStandin.packets(support::kNotify);
    return std::any_of(packets.begin(), packets.end(), [&](const support::Json& packet) {
        for (const support::Json& entry : packet.at("entries").list()) {
            if (entry.at("key").text() == key && entry.at("value").text() == text) {
                return true;
            }
            if (entry.at("key").text() == "KORUInfo" &&
                support::entryOf(entry.at("value").list(), key == "pcName" ? key : "sn").textOf("value") ==
                    text) {
                return true;
            }
        }
        return false;
    });
}

int StarvedHost::countExits() {
    return static_cast<int>(mStandin.packets(support::kNotify, "exitAudioProjection").size());
}

void StarvedHost::expectDeviceInformation(const std::string& pcName) {
    if (!sent("pcName", pcName)) {
        failed("the device information did not arrive whole");
    }
    for (const support::Json& packet : mStandin.recorded("packet")) {
        if (packet.has("malformed")) {
            failed("a packet arrived that is not whole");
        }
    }
}

void StarvedHost::expectNoService(const std::string& after) {
    // What was ended may need a moment to be gone.
    if (!support::poll([] { return support::running("QuPCAudio.exe") == 0; }, std::chrono::seconds(3))) {
        failed("a service is left behind after " + after);
        for (const support::Json& started : mStandin.recorded("start")) {
            support::killProcess(started.numberOf("pid"), "QuPCAudio.exe");
        }
    }
}

void StarvedHost::expectNoBlocks() {
    std::vector<std::string> left;
    // The log's thread holds some while it writes.
    support::poll(
        [&] {
            left = refused_memory::blocksLeft(sizeof(orvel::log4z::LogRecord));
            return left.empty();
        },
        std::chrono::seconds(1));
    for (const std::string& block : left) {
        refused_memory::note("leaked", block.c_str());
    }
}
