// The whole life of a handle at its worst: sixteen threads of the host call every function, the callbacks call back
// into the library, and the service floods, goes away, comes back or is replaced meanwhile.
#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/effort.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

using support::event;
using support::HostEvent;

constexpr int kThreads = 16;
// On a busy machine each call of a callback waits for its turn among those of sixteen threads: up to 50 ms.
constexpr std::chrono::seconds kCallbacksTimeout{120};
constexpr int kRoundsOfEachThread = 50; // at least; more until enough callbacks have run beside them
constexpr int kCallsOfOneRound = 7;
// One callback in so many calls back, so that callbacks are mostly as quick as a host's are.
constexpr int kReactEvery = 16;

struct Kind {
    const char* what;
    std::string scenario;
    int callbacks;     // at least so many, and the loss, come while the host's threads call
    bool losesItsPipe; // which is reported to the host, once
    bool isReplaced;   // by a second handle's service
};

class HandleLife : public support::ServiceTest {
protected:
    // Every function that may be called on a living handle, from any thread and inside a callback.
    void callEverything(int salt) {
        const AudioServiceParam param = support::completeParam();
        const std::string account = "account-" + std::to_string(salt);
        const std::uint32_t state = api.state(handle);
        const char* const name = api.sourceName(handle);
        if (name == nullptr ||
            (std::string(name) != "phone" && std::string(name).substr(0, 8) != "Handset ")) {
            ++mWrongNames;
        }
        api.exitProjection(handle);
        api.setAccountID(handle, account.c_str());
        api.setParam(handle, &param);
        // Of no handle: must find nothing to end.
        mRefused += api.uninit(nullptr) ? 0 : 1;
        mRefused += api.version();
        mCalls += kCallsOfOneRound;
        mLastState = state;
    }

    void reactInCallbacks() {
        events.setReaction([this](const HostEvent& what) {
            if (mReleased) {
                ++mAfterRelease;
            }
            if (what.isError && what.code != SONVIA_ERROR_CONNECTION && what.code != SONVIA_ERROR_STREAM) {
                ++mWrongErrors;
            }
            if (what.isError && what.code == SONVIA_ERROR_CONNECTION && what.value != 0) {
                ++mLossesOfLife;
            }
            ++mCallbacks;
            if (++mCallbacksOfLife % kReactEvery == 0) {
                callEverything(-1);
            }
        });
    }

    // A host that starts over without releasing what it has: the new start-up ends the service of the first handle.
    void liveBeside() {
        AudioServiceHandle* const other = api.init(support::logFolder().c_str(), SONVIA_LOG_WARNING);
        if (other == nullptr) {
            return;
        }
        ++mReplacements;
        const AudioServiceParam param = support::completeParam();
        api.setParam(other, &param);
        api.state(other);
        api.setAccountID(other, "another");
        mRefused += api.uninit(other) ? 0 : 1;
    }

    bool enough(const Kind& kind) const {
        return mCallbacksOfLife >= kind.callbacks && (!kind.losesItsPipe || mLossesOfLife > 0);
    }

    void callUntilEnough(int thread, const Kind& kind) {
        const auto end = std::chrono::steady_clock::now() + kCallbacksTimeout;
        bool replaces = kind.isReplaced && thread == 0;
        for (int round = 0; round < kRoundsOfEachThread || !enough(kind); ++round) {
            callEverything(thread);
            // Only a handle that has its connection can lose it.
            if (replaces && round >= kRoundsOfEachThread / 2 && mCallbacksOfLife > 0) {
                liveBeside();
                replaces = false;
            }
            if (round < kRoundsOfEachThread) {
                continue;
            }
            if (std::chrono::steady_clock::now() > end) {
                ++mHung;
                return;
            }
            // Sixteen threads that never pause send faster than any pipe takes it.
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
    }

    void live(const Kind& kind) {
        start(kind.scenario);
        // Until here a callback was one of the life before.
        mReleased = false;
        mCallbacksOfLife = 0;
        mLossesOfLife = 0;
        events.reset();
        reactInCallbacks();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([=, this] { callUntilEnough(thread, kind); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        stop();
        mReleased = true;
        EXPECT_EQ(mLossesOfLife, kind.losesItsPipe ? 1 : 0);
    }

    void livesWith(const Kind& kind) {
        const int lives = support::rounds(1, 25);
        for (int life = 0; life < lives; ++life) {
            ASSERT_NO_FATAL_FAILURE(live(kind));
            // Natively a record that grows from life to life would be read again and again.
            standin.play("no-pipe");
        }
        EXPECT_EQ(mAfterRelease, 0);
        EXPECT_EQ(mWrongErrors, 0);
        EXPECT_EQ(mWrongNames, 0);
        EXPECT_EQ(mRefused, 0);
        EXPECT_EQ(mReplacements, kind.isReplaced ? lives : 0);
        EXPECT_EQ(mHung, 0) << "threads waited in vain for " << kind.callbacks
                            << " callbacks or for the loss";
        EXPECT_GT(mCallbacks, 0);
        const std::string what = std::string("16 threads, ") + kind.what;
        support::tried(what, mCalls, "calls");
        support::tried(what, mCallbacks, "callbacks");
    }

    std::atomic<long long> mCalls{0};
    std::atomic<int> mCallbacks{0};
    std::atomic<int> mCallbacksOfLife{0};
    std::atomic<int> mLossesOfLife{0};
    std::atomic<int> mReplacements{0};
    std::atomic<int> mHung{0};
    std::atomic<int> mAfterRelease{0};
    std::atomic<int> mWrongErrors{0};
    std::atomic<int> mWrongNames{0};
    std::atomic<int> mRefused{0};
    std::atomic<std::uint32_t> mLastState{0};
    std::atomic<bool> mReleased{false};
};

const std::string kFlood = " packet 34\n  int player-state $i\n  string phone-name \"Handset ${i}\"\n"
                           "  int buffering-start 1\n  int change-mode $i\n end\n";

std::string floodOf(int packets) {
    return support::kAfterDeviceInformation + ("repeat " + std::to_string(packets) + "\n") + kFlood + "end\n";
}

TEST_F(HandleLife, WhileTheServiceFloods) {
    livesWith({"service floods", floodOf(20000), 1000, false, false});
}

TEST_F(HandleLife, WhileTheServiceDiesInTheFlood) {
    livesWith({"service dies in its flood", floodOf(300) + "crash\n", 100, true, false});
}

TEST_F(HandleLife, WhileTheServiceHangsUpInTheFlood) {
    livesWith({"service hangs up in its flood", floodOf(300) + "disconnect\n", 100, true, false});
}

TEST_F(HandleLife, WhileTheServiceIsReplaced) {
    livesWith({"service is replaced", floodOf(2000), 1, true, true});
}

} // namespace
