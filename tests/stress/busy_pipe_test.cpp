// The pipe's name in the hands of a stranger, which outlives the service. One that never serves it: Windows lets a connect
// wait for such a pipe, and nothing but the pipe's owner or the end of that wait lets go of the loop thread. And one that
// sends what no service does.
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "stress/hostile_rounds.h"
#include "support/effort.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

using stress::End;
using stress::Reported;

constexpr std::chrono::seconds kWaitOfTheSystem{30};
// The longest time to end a service on a busy machine, without that wait; and a bound that excludes the wait.
constexpr std::chrono::seconds kBusyPipeBound = kWaitOfTheSystem + stress::kReleaseBound;
constexpr std::chrono::seconds kWithoutThatWait = kWaitOfTheSystem / 2;

class BusyPipe : public stress::HostileRounds {
protected:
    void TearDown() override {
        HostileRounds::TearDown();
        support::killProcess(mOwner, mOwnerName);
    }

    void startOwner(const std::string& ownerName) {
        for (const char* file : {"owned", "let-go", "written"}) {
            fs::remove(file);
        }
        mOwnerName = ownerName;
        if (!fs::exists(ownerName)) {
            fs::copy_file(support::programFolder() / "pipe_owner.exe", ownerName);
        }
        start("no-pipe\n");
        ASSERT_TRUE(standin.waitForEvent("start"));
        mOwner = support::startProgram(fs::current_path() / ownerName);
        ASSERT_TRUE(support::eventually(
            "the pipe has its owner", [] { return fs::exists("owned"); }, support::kProcessTimeout));
        ASSERT_NO_FATAL_FAILURE(configure());
    }

    // A service that leaves the pipe to another process, which bears that program's name.
    void startBeside(const std::string& ownerName) {
        ASSERT_NO_FATAL_FAILURE(startOwner(ownerName));
        const AudioServiceParam param = support::completeParam();
        EXPECT_FALSE(api.setParam(handle, &param)) << "the connect is still waiting";
        EXPECT_EQ(events.count(), 0U);
    }

    // A service that leaves the pipe to a stranger that writes the frames so often.
    void startBesideFrames(const std::string& frames, int times) {
        std::ofstream("frames", std::ios::binary) << frames;
        std::ofstream("times") << times;
        startOwner("stranger.exe");
    }

    void waitUntilWritten() {
        ASSERT_TRUE(support::eventually("the stranger has written", [] { return fs::exists("written"); }));
    }

    // Until libuv waits inside a read: then a call gives up waiting for the loop thread.
    void waitUntilStuck() {
        ASSERT_TRUE(support::eventually("a call gives up waiting", [this] {
            const auto begun = std::chrono::steady_clock::now();
            api.exitProjection(handle);
            return std::chrono::steady_clock::now() - begun >= std::chrono::milliseconds(45);
        }));
    }

    void endOwner() {
        standin.signal("let-go");
        ASSERT_TRUE(support::processEnds(mOwner, mOwnerName));
    }

    bool ownerRuns() const { return support::processRuns(mOwner, mOwnerName); }

private:
    std::int64_t mOwner = 0;
    std::string mOwnerName;
};

TEST_F(BusyPipe, OwnerThatEndsWithTheServiceLetsUninitGoAtOnce) {
    repeat("busy pipe, freed by ending the service", support::rounds(2, 50), [this](int) {
        ASSERT_NO_FATAL_FAILURE(startBeside("QuPCAudio.exe"));
        release(Reported::kNeverConnected, End::kLibrary, kWithoutThatWait);
        EXPECT_FALSE(ownerRuns());
    });
}

TEST_F(BusyPipe, OwnerThatLetsGoMeanwhileLetsUninitGoAtOnce) {
    repeat("busy pipe, freed by its owner", support::rounds(2, 50), [this](int) {
        ASSERT_NO_FATAL_FAILURE(startBeside("stranger.exe"));
        // Once the service has ended uninit waits for nothing but the pipe.
        const std::int64_t service = standin.pid();
        std::future<void> freed = std::async(std::launch::async, [this, service] {
            support::processEnds(service, "QuPCAudio.exe");
            endOwner();
        });
        release(Reported::kNeverConnected, End::kLibrary, kWithoutThatWait);
        freed.get();
    });
}

TEST_F(BusyPipe, OwnerThatNeverLetsGoCostsUninitTheWaitOfTheSystem) {
    repeat("busy pipe, never freed", support::rounds(1, 3), [this](int) {
        ASSERT_NO_FATAL_FAILURE(startBeside("stranger.exe"));
        release(Reported::kNeverConnected, End::kLibrary, kBusyPipeBound);
        endOwner();
    });
}

// What precedes the payload of a frame between processes: flags, 0, the payload's length, 0.
std::string frameHeader(std::uint32_t flags, std::uint32_t length) {
    const std::array<std::uint32_t, 4> fields = {flags, 0, length, 0};
    std::string bytes(sizeof fields, '\0');
    std::memcpy(bytes.data(), fields.data(), sizeof fields);
    return bytes;
}

constexpr std::uint32_t kPayload = 1;
constexpr std::uint32_t kSocket = 2;
// The description of a socket (WSAPROTOCOL_INFOW) and an error.
constexpr std::size_t kSocketRecord = 632;

TEST_F(BusyPipe, StrangerThatSendsHalfAHeaderDoesNotKeepUninit) {
    repeat("stranger, half a frame's header", support::rounds(2, 50), [this](int) {
        ASSERT_NO_FATAL_FAILURE(startBesideFrames(frameHeader(kPayload, 5).substr(0, 8), 1));
        ASSERT_NO_FATAL_FAILURE(waitUntilWritten());
        ASSERT_NO_FATAL_FAILURE(waitUntilStuck());
        release(Reported::kNothing, End::kLibrary, kWithoutThatWait);
        EXPECT_TRUE(ownerRuns());
        endOwner();
    });
}

TEST_F(BusyPipe, StrangerThatSendsHalfASocketDoesNotKeepUninit) {
    repeat("stranger, half of a socket's record", support::rounds(2, 50), [this](int) {
        ASSERT_NO_FATAL_FAILURE(
            startBesideFrames(frameHeader(kSocket, 0) + std::string(kSocketRecord / 2, '\0'), 1));
        ASSERT_NO_FATAL_FAILURE(waitUntilWritten());
        ASSERT_NO_FATAL_FAILURE(waitUntilStuck());
        release(Reported::kNothing, End::kLibrary, kWithoutThatWait);
        EXPECT_TRUE(ownerRuns());
        endOwner();
    });
}

TEST_F(BusyPipe, PeerThatPassesAHundredThousandSocketsIsOneErrorAndCostsNoMemory) {
    repeat("stranger, sockets passed along", support::rounds(2, 20), [this](int) {
        ASSERT_NO_FATAL_FAILURE(
            startBesideFrames(frameHeader(kSocket, 0) + std::string(kSocketRecord, '\0'), 100000));
        ASSERT_TRUE(events.waitForCount(1));
        release(Reported::kStreamError, End::kLibrary, kWithoutThatWait);
        EXPECT_TRUE(ownerRuns());
        endOwner();
    });
}

} // namespace
