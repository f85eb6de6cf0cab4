// A host whose library is refused memory, and what it finds wrong. Each step refuses one request after the other until a
// round saw none refused.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "stress/memory/refused_memory.h"
#include "support/host_events.h"
#include "support/host_library.h"
#include "support/standin.h"

inline constexpr int kMaxRounds = 400;
inline constexpr int kRoundsOfOneLife = 60;

void failed(const std::string& text);

// The texts and the values of round n.
std::string nameOf(int n);
int stateOf(int n);

class StarvedHost {
public:
    // From init on, as many times as it takes. False when there is no handle even though nothing was refused.
    bool start(const std::string& scenario, const char* phase = nullptr);

    bool startLife(const char* phase = nullptr);

    // setParam until the first event has come. False when it never does; the fault has then been reported.
    bool connect(bool refuse);

    void stop(bool refuse);

    // The first exception of each thread, and the first one that finds no memory for itself, have the compiler's runtime
    // keep some.
    void throwOnce();

    void setWarm() { mIsWarm = true; }

    // Has the service send the packets of the next round, and waits for the last one. False when the connection is of no
    // more use, as was reported to the host.
    bool notifications(refused_memory::Role role, const char* phase);

    // One call, refused on one thread, and the packet that it claims to have sent; recognised by the next one.
    void sends(refused_memory::Role role, const char* what);

    void asks();

    bool loses(const char* phase);

    // A service without a pipe: every connect fails.
    void connectsInVain();

    bool takeRefused() { return std::exchange(mRefused, false); }

    int round() const { return mRound; }

    // Fills what the log keeps for later lines.
    void talk();

    void expectState(int n, bool mayBeOlder);

    // The log works: a line that is written now gets into it.
    void expectLog();

private:
    AudioServiceHandle* init();

    AudioServiceHandle* refusing(const char* phase, bool& refused);

    bool setParam(const std::string& pcName);

    bool callOne(const std::string& what, const std::string& text);

    // Sends one more packet, and waits for it: those before it have arrived then.
    // False, too, as soon as the log says from that place on that memory has run out.
    bool marked(const std::string& text, std::size_t logged = std::string::npos);

    // Of one length: a shorter account would keep the tail of the one before.
    static std::string textOf(int n);

    static bool has(const std::vector<support::HostEvent>& events, const support::HostEvent& wanted);

    const char* keep(const std::string& text);

    // Until the event has come, or an error, or, from that place of the log on, a line that memory has run out.
    void waitForOutcome(const support::HostEvent& wanted, const char* what, std::size_t before = 0,
                        std::size_t logged = std::string::npos);

    static bool hasLackOfMemory(std::size_t logged);

    static bool saysLackOfMemory(std::size_t logged);

    bool sent(const std::string& key, const std::string& text);

    int countExits();

    void expectDeviceInformation(const std::string& pcName);

    void expectNoService(const std::string& after);

    void expectNoBlocks();

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
