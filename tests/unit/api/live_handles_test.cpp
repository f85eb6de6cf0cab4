// Handles that hosts release twice, use after the release, or release from several threads at once.

#include "api/life_cycle.h"
#include "oracle/entries.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace support;

namespace {

constexpr const char* kReleased = "handle has been released";

std::vector<LogLine> linesOf(const char* function, char firstLetter, const std::string& firstText) {
    return {{firstLetter, kApiTag, function, 0, firstText}, {'E', kApiTag, function, 0, kReleased}};
}

class ReleasedHandle : public testing::Test {
protected:
    ReleasedHandle() {
        LogCapture quiet;
        EXPECT_TRUE(uninitSonviaAudioService(handle));
    }

    Host host;
    const AudioServiceParam record = Host::record();
    DirectHandle direct;
    AudioServiceHandle* const handle = direct.handle;
};

/// A service process that does something while it is waited for.
class BusyProcess : public platform::Process {
public:
    explicit BusyProcess(std::function<void()> whileWaiting) : mWhileWaiting(std::move(whileWaiting)) {}

    bool waitForEnd(std::chrono::milliseconds /*limit*/) override {
        mWhileWaiting();
        return true;
    }

    void endByForce() override {}

private:
    std::function<void()> mWhileWaiting;
};

} // namespace

TEST_F(ReleasedHandle, ExitAudioProjectionIsFalse) {
    LogCapture log;
    EXPECT_FALSE(exitAudioProjection(handle));
    EXPECT_EQ(log.lines(), linesOf("exitAudioProjection", 'I', "exitAudioProjection"));
}

TEST_F(ReleasedHandle, GetStateIsFour) {
    LogCapture log;
    EXPECT_EQ(getState(handle), 4U);
    EXPECT_EQ(log.lines(), linesOf("getState", 'D', "getState!"));
}

TEST_F(ReleasedHandle, GetSourceNameIsPhone) {
    LogCapture log;
    EXPECT_STREQ(getSourceName(handle), "phone");
    EXPECT_EQ(log.lines(), linesOf("getSourceName", 'D', "getSourceName!"));
}

TEST_F(ReleasedHandle, SetParamIsFalseWhateverTheRecord) {
    for (const AudioServiceParam* each : {&record, static_cast<const AudioServiceParam*>(nullptr)}) {
        LogCapture log;
        EXPECT_FALSE(setParam(handle, each));
        EXPECT_EQ(log.lines(), linesOf("setParam", 'D', "koru setParam!"));
    }
}

TEST_F(ReleasedHandle, SetAccountIDIsFalse) {
    LogCapture log;
    EXPECT_FALSE(setAccountID(handle, "someone"));
    EXPECT_EQ(log.lines(), linesOf("setAccountID", 'D', "koru setAccountID!"));
}

TEST_F(ReleasedHandle, UninitIsTrueAndDoesNothingMore) {
    LogCapture log;
    EXPECT_TRUE(uninitSonviaAudioService(handle));
    EXPECT_EQ(log.lines(), linesOf("uninitSonviaAudioService", 'I', "uninitSonviaAudioService"));
}

TEST_F(ReleasedHandle, IsNeverTheHandleOfAnotherSession) {
    LogCapture quiet;
    std::set<AudioServiceHandle*> earlier = {handle};
    for (int life = 0; life < 1000; ++life) {
        const ListedRecord next; // as often as not at the address of the one before
        EXPECT_TRUE(earlier.insert(next.handle).second) << life;
    }
}

TEST_F(ReleasedHandle, LeavesTheNextSessionAlone) {
    LogCapture quiet;
    DirectHandle next;
    EXPECT_FALSE(setAccountID(handle, "someone"));
    EXPECT_TRUE(uninitSonviaAudioService(handle));
    EXPECT_TRUE(next.stream.packets().empty());
    EXPECT_TRUE(setAccountID(next.handle, "someone"));
    EXPECT_EQ(next.stream.packets().size(), 1U);
}

TEST(LiveHandles, ThereMayBeAnyNumberOfThem) {
    Host host;
    LogCapture quiet;
    std::vector<std::unique_ptr<DirectHandle>> many;
    for (int handle = 0; handle < 200; ++handle) {
        many.push_back(std::make_unique<DirectHandle>());
    }
    for (const std::unique_ptr<DirectHandle>& each : many) {
        EXPECT_TRUE(exitAudioProjection(each->handle));
        EXPECT_EQ(each->stream.packets().size(), 1U);
        EXPECT_TRUE(uninitSonviaAudioService(each->handle));
    }
}

TEST(LiveHandles, WhatWasNeverAHandleIsRefused) {
    LogCapture log;
    int something = 0;
    EXPECT_EQ(getState(reinterpret_cast<AudioServiceHandle*>(&something)), 4U);
    EXPECT_TRUE(uninitSonviaAudioService(reinterpret_cast<AudioServiceHandle*>(&something)));
    EXPECT_EQ(log.lines().size(), 4U);
}

TEST(LiveHandles, TheStateIsKnownWithoutTheSessionUntilTheRelease) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    EXPECT_EQ(liveHandles().playerState(direct.handle), 4U);
    direct.receive(oracle::encodeInt("player-state", 2));
    EXPECT_EQ(liveHandles().playerState(direct.handle), 2U);
    direct.record->process = std::make_unique<BusyProcess>(
        [&direct] { EXPECT_EQ(liveHandles().playerState(direct.handle), HandleEntry::kAskSession); });
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
    EXPECT_EQ(liveHandles().playerState(direct.handle), HandleEntry::kAskSession);
    EXPECT_EQ(liveHandles().playerState(nullptr), HandleEntry::kAskSession);
}

// What the fast way to the state takes for "ask the session" may also be what the service reported.
TEST(LiveHandles, AStateOfAllOnesIsReportedToo) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    direct.receive(oracle::encodeInt("player-state", -1));
    EXPECT_EQ(getState(direct.handle), 0xFFFFFFFFU);
}

TEST(LiveHandles, APolledStateIsNeverThatOfAnotherSession) {
    constexpr std::uint32_t kLives = 300;
    const auto stateOf = [](std::uint32_t life) { return static_cast<std::int32_t>(life) + 10; };
    Host host;
    LogCapture quiet;
    std::array<std::atomic<AudioServiceHandle*>, kLives> handles = {};
    std::atomic<std::uint32_t> lives{0};
    std::atomic<int> wrong{0};
    std::thread poller([&] {
        for (std::uint32_t life = 0; life < kLives; life = lives.load()) {
            AudioServiceHandle* const handle = handles.at(life).load();
            for (int poll = 0; handle != nullptr && poll < 100; ++poll) {
                const std::uint32_t state = liveHandles().playerState(handle);
                const bool isKnown = state != HandleEntry::kAskSession && state != SONVIA_STATE_UNKNOWN;
                wrong += isKnown && state != static_cast<std::uint32_t>(stateOf(life)) ? 1 : 0;
            }
        }
    });
    for (std::uint32_t life = 0; life < kLives; ++life) {
        DirectHandle direct;
        handles.at(life) = direct.handle;
        direct.receive(oracle::encodeInt("player-state", stateOf(life)));
        EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
        ++lives;
    }
    poller.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(LiveHandles, OfReleasesMadeAtOnceOneReleases) {
    Host host;
    LogCapture log;
    for (int round = 1; round <= 20; ++round) {
        DirectHandle direct;
        std::atomic<int> waits{0};
        direct.record->process = std::make_unique<BusyProcess>([&waits] { ++waits; });
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] { EXPECT_TRUE(uninitSonviaAudioService(direct.handle)); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(waits.load(), 1);
    }
    std::size_t refused = 0;
    for (const LogLine& line : log.lines()) {
        refused += line.text == kReleased ? 1U : 0U;
    }
    EXPECT_EQ(refused, 60U);
}

TEST(LiveHandles, AReleaseUnderWayIsOneForEveryOtherThread) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    direct.receive(oracle::encodeInt("player-state", 2));
    std::uint32_t state = 0;
    direct.record->process = std::make_unique<BusyProcess>([&] { // which waits for the thread that releases
        std::thread other([&] {
            state = getState(direct.handle);
            EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
        });
        other.join();
    });
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
    EXPECT_EQ(state, 4U);
}

TEST(LiveHandles, ACallbackUnderWayIsAnsweredUntilTheReleaseIsDone) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    direct.receive(oracle::encodeInt("player-state", 2));
    ASSERT_TRUE(startLoopThread(*direct.record));
    std::promise<std::uint32_t> state;
    direct.record->process = std::make_unique<BusyProcess>([&] {
        ASSERT_EQ(direct.record->loop->post([&] { state.set_value(getState(direct.handle)); }), 0);
        EXPECT_EQ(state.get_future().get(), 2U);
    });
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
}

TEST(LiveHandles, ACallbackIsAnsweredAlsoWhileTheReleaseWaitsForACall) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    direct.receive(oracle::encodeInt("player-state", 2));
    ASSERT_TRUE(startLoopThread(*direct.record));
    auto call = std::make_unique<HandleUse>(liveHandles().use(direct.handle));
    std::future<bool> release =
        std::async(std::launch::async, [&direct] { return uninitSonviaAudioService(direct.handle); });
    ASSERT_TRUE(eventually("the release has begun", [&direct] { return getState(direct.handle) == 4U; }));
    std::promise<std::uint32_t> state;
    EXPECT_EQ(direct.record->loop->post([&] { state.set_value(getState(direct.handle)); }), 0);
    EXPECT_EQ(state.get_future().get(), 2U);
    call.reset();
    EXPECT_TRUE(release.get());
}

TEST(LiveHandles, AReleaseWaitsForTheCallsUnderWay) {
    /// A pipe that is not ready yet.
    struct SlowSocket : RecordingSocket {
        bool write(const OBufList& list) override {
            if (!begun.exchange(true)) {
                goOn.get_future().wait();
            }
            return RecordingSocket::write(list);
        }

        std::atomic<bool> begun{false};
        std::promise<void> goOn;
    };

    Host host;
    LogCapture quiet;
    DirectHandle direct;
    SlowSocket slow;
    direct.record->session->setStream(&slow);
    std::atomic<bool> releases{false};
    direct.record->process = std::make_unique<BusyProcess>([&releases] { releases = true; });
    std::future<bool> call =
        std::async(std::launch::async, [&direct] { return setAccountID(direct.handle, "someone"); });
    ASSERT_TRUE(eventually("the write has begun", [&slow] { return slow.begun.load(); }));
    std::future<bool> release =
        std::async(std::launch::async, [&direct] { return uninitSonviaAudioService(direct.handle); });
    EXPECT_FALSE(poll([&releases] { return releases.load(); }, std::chrono::milliseconds(300)));
    slow.goOn.set_value();
    EXPECT_TRUE(call.get());
    EXPECT_TRUE(release.get());
    EXPECT_EQ(slow.packets().size(), 2U);
}

// A callback that polls: each of its calls begins before the one before has been forgotten.
TEST(LiveHandles, ACallbackThatCallsWithoutPauseDoesNotKeepTheReleaseWaiting) {
    Host host;
    LogCapture quiet;
    DirectHandle direct;
    ASSERT_TRUE(startLoopThread(*direct.record));
    std::atomic<bool> released{false};
    ASSERT_EQ(direct.record->loop->post([&] {
        while (!released.load()) {
            getState(direct.handle);
        }
    }),
              0);
    direct.record->process = std::make_unique<BusyProcess>([&released] { released = true; });
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
}
