#include "player.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "oracle/entries.h"

namespace standin {

namespace {

constexpr std::uint64_t kTickMs = 2;
constexpr int kStepsPerTurn = 64;
constexpr std::int64_t kListenGuardMs = 10000;
constexpr std::int64_t kWaitGuardMs = 30000; // of a wait without a guard of its own, in a guarded service

bool keyPresent(const oracle::Packet& packet, const std::string& key) {
    const std::vector<oracle::Entry> entries = oracle::decode(packet.payload).entries;
    return std::any_of(entries.begin(), entries.end(),
                       [&](const oracle::Entry& entry) { return entry.key == key; });
}

} // namespace

Player::Player(uv_loop_t* loop, Scenario scenario, PlayerOptions options, Record& record, Show& show)
    : mLoop(loop), mScenario(std::move(scenario)), mOptions(std::move(options)), mRecord(record), mShow(show),
      mPipe(loop, mOptions.pipeName,
            {[this] {
                 mHadConnection = true;
                 mCutter = oracle::PacketCutter();
                 mRecord.write(RecordLine("connect"));
                 mShow.event("a host has connected");
                 advance();
             },
             [this](std::string_view bytes) { onReceived(bytes); },
             [this](int code) {
                 disconnected(code);
                 advance();
             }}) {}

void Player::start() {
    const std::optional<std::int64_t> guard =
        mScenario.guardSeconds ? mScenario.guardSeconds : mOptions.guardSeconds;
    uv_timer_init(mLoop, &mOverallGuard);
    mOverallGuard.data = this;
    if (guard) {
        uv_timer_start(
            &mOverallGuard,
            [](uv_timer_t* timer) {
                static_cast<Player*>(timer->data)->leave(kExitOverallGuard, "overall guard");
            },
            static_cast<std::uint64_t>(*guard) * 1000, 0);
    }
    uv_timer_init(mLoop, &mStopDelay);
    mStopDelay.data = this;
    uv_timer_init(mLoop, &mTick);
    mTick.data = this;
    advance();
}

void Player::disconnected(int code) {
    mRecord.write(RecordLine("disconnect")
                      .number("code", code)
                      .number("unfinished", static_cast<std::int64_t>(mCutter.pending())));
    mShow.event(code == 0 ? "disconnected" : std::string("the host has gone: ") + uv_err_name(code),
                code == 0 ? currentLine() : 0);
}

void Player::advance() {
    int steps = 0;
    while (mNext < mScenario.steps.size() && steps < kStepsPerTurn) {
        if (!std::exchange(mStepBegun, true)) {
            mStepStart = uv_now(mLoop);
        }
        if (!(mTrickle.empty() ? perform(mScenario.steps[mNext].action) : trickle())) {
            break;
        }
        ++mNext;
        ++steps;
        mStepBegun = false;
    }
    if (mNext < mScenario.steps.size()) {
        uv_timer_start(
            &mTick, [](uv_timer_t* timer) { static_cast<Player*>(timer->data)->advance(); },
            steps == kStepsPerTurn ? 0 : kTickMs, 0);
    }
}

bool Player::perform(const Action& action) {
    return std::visit([this](const auto& step) { return perform(step); }, action);
}

std::int64_t Player::stepAge() const {
    return static_cast<std::int64_t>(uv_now(mLoop) - mStepStart);
}

std::size_t Player::currentLine() const {
    return mNext < mScenario.steps.size() ? mScenario.steps[mNext].line : 0;
}

void Player::checkGuard(const Guard& guard) {
    if (!guard && !mOptions.guardSeconds) {
        return;
    }
    if (stepAge() > guard.value_or(kWaitGuardMs)) {
        leave(kExitStepGuard, "guard of line " + std::to_string(currentLine()));
    }
}

bool Player::perform(const WaitTime& step) {
    return stepAge() >= step.milliseconds.value(mCounters);
}

bool Player::perform(const WaitConnection& step) {
    if (mPipe.connected()) {
        return true;
    }
    checkGuard(step.guard);
    return false;
}

bool Player::perform(const WaitPacket& step) {
    while (!mInbox.empty()) {
        const oracle::Packet packet = std::move(mInbox.front());
        mInbox.pop_front();
        const bool commandFits = !step.command || step.command->value(mCounters) == packet.command;
        if (commandFits && (!step.key || keyPresent(packet, step.key->value(mCounters)))) {
            ++mMatches;
        }
        if (mMatches >= step.count.value(mCounters)) {
            mMatches = 0;
            return true;
        }
    }
    checkGuard(step.guard);
    return false;
}

bool Player::perform(const WaitFile& step) {
    uv_fs_t request;
    const int result = uv_fs_stat(nullptr, &request, step.path.value(mCounters).c_str(), nullptr);
    uv_fs_req_cleanup(&request);
    if (result == 0) {
        return true;
    }
    checkGuard(step.guard);
    return false;
}

bool Player::perform(const Listen& /*step*/) {
    const int result = mPipe.listen();
    if (result == 0) {
        mRecord.write(RecordLine("listen"));
        mShow.event("listening on " + mOptions.pipeName, currentLine());
        return true;
    }
    if (stepAge() > kListenGuardMs) {
        leave(kExitStepGuard, std::string("cannot listen: ") + uv_err_name(result));
    }
    return false;
}

bool Player::perform(const RepeatBegin& step) {
    if (mLoops.empty() || mLoops.back().begin != mNext) {
        mLoops.push_back({mNext, 0});
    }
    const std::int64_t round = mLoops.back().round;
    if (step.count && round >= step.count->value(mCounters)) {
        mLoops.pop_back();
        mNext = step.end;
        return true;
    }
    mCounters[step.counter] = round;
    return true;
}

bool Player::perform(const RepeatEnd& step) {
    ++mLoops.back().round;
    mNext = step.begin - 1; // advance() moves on to the begin step itself
    return true;
}

bool Player::perform(const Disconnect& /*step*/) {
    if (mPipe.unwritten() != 0) {
        return false;
    }
    mPipe.disconnect();
    disconnected(0);
    return true;
}

bool Player::perform(const ClosePipe& /*step*/) {
    if (!perform(Disconnect{})) {
        return false;
    }
    mPipe.stopListening();
    return true;
}

bool Player::perform(const Crash& /*step*/) {
    if (mPipe.unwritten() != 0) {
        return false;
    }
    mRecord.write(RecordLine("crash"));
    mShow.trouble("crashes", currentLine());
    uv_kill(uv_os_getpid(), SIGKILL);
    return false;
}

bool Player::perform(const Exit& step) {
    if (mPipe.unwritten() != 0) {
        return false;
    }
    leave(static_cast<int>(step.code.value(mCounters)), "scenario");
}

bool Player::perform(const ReadingSwitch& step) {
    mPipe.setReading(step.on);
    return true;
}

bool Player::perform(const ReadSlowly& step) {
    mPipe.readSlowly(static_cast<std::size_t>(step.bytes.value(mCounters)),
                     static_cast<std::uint64_t>(step.pause.value(mCounters)));
    return true;
}

bool Player::perform(const OnStop& step) {
    mOnStop = step;
    return true;
}

bool Player::perform(const StartChildren& step) {
    const std::int64_t count = step.count.value(mCounters);
    for (std::int64_t i = 0; i < count; ++i) {
        std::string program = mOptions.childProgram;
        char* arguments[] = {program.data(), nullptr};
        uv_process_options_t options{};
        options.file = program.c_str();
        options.args = arguments;
        // Detached: otherwise libuv itself would end the child together with this process, and a test could
        // not show whether the one who killed the service also killed its children.
        options.flags = UV_PROCESS_DETACHED | UV_PROCESS_WINDOWS_HIDE;
        auto* child = new uv_process_t;
        const int result = uv_spawn(mLoop, child, &options);
        mChildren.push_back(child);
        mRecord.write(result == 0 ? RecordLine("child").number("pid", child->pid)
                                  : RecordLine("child").text("error", uv_err_name(result)));
    }
    return true;
}

bool Player::perform(const Note& step) {
    const std::string text = step.text.value(mCounters);
    mRecord.write(RecordLine("note").text("text", text));
    mShow.event("note: " + text, currentLine());
    return true;
}

void Player::onReceived(std::string_view bytes) {
    mCutter.feed(oracle::bytesOf(bytes));
    while (std::optional<oracle::Packet> packet = mCutter.next()) {
        onPacket(*packet);
        mInbox.push_back(std::move(*packet));
    }
    if (!mCutter.error().empty()) {
        mRecord.write(RecordLine("malformed").text("reason", mCutter.error()));
        mShow.trouble("malformed bytes, closing the connection: " + mCutter.error());
        mPipe.disconnect();
    }
    advance();
}

void Player::onPacket(const oracle::Packet& packet) {
    oracle::Packet witnessed = packet;
    if (!mOptions.secrets) {
        witnessed.payload = oracle::masked(packet.payload);
    }
    mRecord.write(packetLine(witnessed, From::Host));
    mShow.received(witnessed);
    if (packet.command != oracle::kStop || mOnStop.ignore) {
        return;
    }
    const std::int64_t delay = mOnStop.after.value(mCounters);
    if (delay <= 0) {
        leave(static_cast<int>(mOnStop.code.value(mCounters)), "stop");
    }
    uv_timer_start(
        &mStopDelay,
        [](uv_timer_t* timer) {
            auto* self = static_cast<Player*>(timer->data);
            self->leave(static_cast<int>(self->mOnStop.code.value(self->mCounters)), "stop");
        },
        static_cast<std::uint64_t>(delay), 0);
}

// std::_Exit: nothing of this process is worth a tidy end, and open handles must not be able to delay it.
void Player::leave(int code, std::string_view reason) {
    mRecord.write(RecordLine("exit").number("code", code).text("reason", reason));
    const std::string text = "ends with " + std::to_string(code) + ": " + std::string(reason);
    code == kExitOverallGuard || code == kExitStepGuard ? mShow.trouble(text) : mShow.event(text);
    std::_Exit(code);
}

} // namespace standin
