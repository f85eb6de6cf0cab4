// Plays a scenario on the loop's thread and answers to what arrives.
//
// A plain program counter walks over the steps. A step that cannot be finished yet (a wait, a full pipe) is
// asked again on every event and on a short tick, so nothing ever blocks the loop and the stop notification
// is always heard. Reaching the end of the steps is not the end of the service: it goes on serving until it
// is stopped.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <uv.h>

#include "oracle/packets.h"
#include "pipe_server.h"
#include "record.h"
#include "scenario.h"
#include "show.h"

namespace standin {

// Exit codes of the service that no scenario asked for.
inline constexpr int kExitOverallGuard = 89;
inline constexpr int kExitStepGuard = 90;
inline constexpr int kExitBadScenario = 91;

struct PlayerOptions {
    std::string pipeName;
    std::string childProgram; // full path of the program that `children` starts
    // For tests: the service ends after this time, and each wait after half a minute. Nothing ends it without.
    std::optional<std::int64_t> guardSeconds;
    bool secrets = false;    // texts of the host are recorded and shown as they are
    bool recordSent = false; // what the service sends is recorded too
};

class Player {
public:
    // `record` and `show` outlive the player.
    Player(uv_loop_t* loop, Scenario scenario, PlayerOptions options, Record& record, Show& show);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    // Starts the timers and the first steps; the rest happens inside uv_run. The process ends by `std::_Exit`
    // or by the scenario's crash.
    void start();

private:
    struct Loop {
        std::size_t begin;
        std::int64_t round;
    };

    // Runs steps until one has to wait, or until the loop deserves a turn.
    void advance();
    // True when the step is finished. Asked again later when not.
    bool perform(const Action& action);
    bool perform(const WaitTime& step);
    bool perform(const WaitConnection& step);
    bool perform(const WaitPacket& step);
    bool perform(const WaitFile& step);
    bool perform(const Listen& step);
    bool perform(const SendPacket& step);
    bool perform(const SendBytes& step);
    bool perform(const SendFill& step);
    bool perform(const Flush& step);
    bool perform(const RepeatBegin& step);
    bool perform(const RepeatEnd& step);
    bool perform(const SplitBegin& step);
    bool perform(const SplitEnd& step);
    bool perform(const JoinBegin& step);
    bool perform(const JoinEnd& step);
    bool perform(const Disconnect& step);
    bool perform(const ClosePipe& step);
    bool perform(const Crash& step);
    bool perform(const Exit& step);
    bool perform(const ReadingSwitch& step);
    bool perform(const ReadSlowly& step);
    bool perform(const OnStop& step);
    bool perform(const StartChildren& step);
    bool perform(const Note& step);

    // Milliseconds since the current step began.
    std::int64_t stepAge() const;
    std::size_t currentLine() const;
    // Ends the service when the current wait has lasted longer than its guard.
    void checkGuard(const Guard& guard);
    bool readyToSend();
    bool sendOut(oracle::Bytes bytes);
    void witnessSent(const oracle::Bytes& bytes);
    void disconnected(int code);
    bool trickle();
    void onPacket(const oracle::Packet& packet);
    void onReceived(std::string_view bytes);
    [[noreturn]] void leave(int code, std::string_view reason);

    uv_loop_t* mLoop;
    Scenario mScenario;
    PlayerOptions mOptions;
    Record& mRecord;
    Show& mShow;
    PipeServer mPipe;
    uv_timer_t mTick{};
    uv_timer_t mOverallGuard{};
    uv_timer_t mStopDelay{};

    std::size_t mNext = 0;
    bool mStepBegun = false;
    std::uint64_t mStepStart = 0;
    std::vector<Loop> mLoops;
    Counters mCounters;
    bool mHadConnection = false;
    std::uint16_t mSequence = 0;

    bool mJoining = false;
    oracle::Bytes mJoined;
    std::optional<std::int64_t> mPace; // set inside a split block
    oracle::Bytes mTrickle;            // bytes of the current step not yet written one by one
    std::size_t mTrickled = 0;
    std::uint64_t mNextByteTime = 0;

    oracle::PacketCutter mCutter;
    std::deque<oracle::Packet> mInbox; // received and not yet looked at by a `wait packet`
    std::int64_t mMatches = 0;         // of the current `wait packet`
    OnStop mOnStop;
    std::vector<uv_process_t*> mChildren; // never freed: they live as long as the process
};

} // namespace standin
