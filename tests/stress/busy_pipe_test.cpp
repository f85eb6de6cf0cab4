// The pipe's name in the hands of a process that never serves it. Windows lets a connect wait for such a pipe, and
// nothing but the pipe's owner or the end of that wait lets go of the loop thread.
#include <filesystem>
#include <future>

#include "stress/hostile_rounds.h"
#include "support/effort.h"
#include "support/wait.h"

namespace {

namespace fs = std::filesystem;

using stress::End;
using stress::Told;

constexpr std::chrono::seconds kWaitOfTheSystem{30};
// What ending a service takes at most on a busy machine, beside that wait; and a bound that excludes the wait.
constexpr std::chrono::seconds kBusyPipeBound = kWaitOfTheSystem + stress::kReleaseBound;
constexpr std::chrono::seconds kWithoutThatWait = kWaitOfTheSystem / 2;

class BusyPipe : public stress::HostileRounds {
protected:
    void TearDown() override {
        HostileRounds::TearDown();
        support::killProcess(mOwner, mOwnerName);
    }

    // A service that leaves the pipe to another process, which bears that program's name.
    void startBeside(const std::string& ownerName) {
        fs::remove("owned");
        fs::remove("let-go");
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
        const AudioServiceParam param = support::completeParam();
        EXPECT_FALSE(api.setParam(handle, &param)) << "the connect is still waiting";
        EXPECT_EQ(events.count(), 0U);
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
        release(Told::kNeverConnected, End::kLibrary, kWithoutThatWait);
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
        release(Told::kNeverConnected, End::kLibrary, kWithoutThatWait);
        freed.get();
    });
}

TEST_F(BusyPipe, OwnerThatNeverLetsGoCostsUninitTheWaitOfTheSystem) {
    repeat("busy pipe, never freed", support::rounds(1, 3), [this](int) {
        ASSERT_NO_FATAL_FAILURE(startBeside("stranger.exe"));
        release(Told::kNeverConnected, End::kLibrary, kBusyPipeBound);
        endOwner();
    });
}

} // namespace
