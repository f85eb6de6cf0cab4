// What an exported function sends has left when the function returns, whatever the host does next.
#include "support/pipe_peer.h"
#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

#include <future>
#include <memory>
#include <string>

namespace {

using support::kAfterDeviceInformation;

// Where the library looks for its service.
constexpr const char* kPipeName = R"(\\.\pipe\uv_pipe.QuPCAudio)";

constexpr const char* kEventWhenTold =
    "wait packet command 34 key KORUInfo\nwait file go\nnotify int buffering-start 1\n";

class Sends : public support::ServiceTest {};

TEST_F(Sends, EndOfTheProjectionReachesTheServiceOfAHostThatEndsItsProcessRightAfterIt) {
    for (std::size_t round = 1; round <= 3; ++round) {
        standin.play(std::string(kAfterDeviceInformation) + "notify int buffering-start 1\n");
        ASSERT_EQ(support::runProgram(support::programFolder() / support::programFile("host_child"),
                                      {"end-after-projection"}),
                  0);
        EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "exitAudioProjection")) << round;
    }
}

// A launcher, a service that restarts itself, or one that taskkill may not end: the process has gone, the pipe has a reader.
TEST_F(Sends, StopAndWhatWasSentBeforeItReachAReaderThatOutlivesTheStartedProcess) {
    for (int round = 0; round < 5; ++round) {
        support::PipePeer reader(kPipeName);
        start("no-pipe\nexit\n");
        ASSERT_TRUE(standin.waitForEvent("exit"));
        ASSERT_TRUE(support::processEnds(standin.pid(), "QuPCAudio.exe"));
        const AudioServiceParam param = support::completeParam();
        ASSERT_TRUE(api.setParam(handle, &param));
        ASSERT_TRUE(support::eventually("the device information arrives", [&] {
            return reader.received().find("KORUInfo") != std::string::npos;
        }));
        EXPECT_TRUE(api.exitProjection(handle));
        stop();
        ASSERT_TRUE(reader.waitForEnd());
        const std::string received = reader.received();
        const std::size_t exit = received.find("exitAudioProjection");
        const std::size_t stopSent = received.find("StopSonviaAudioService");
        EXPECT_NE(exit, std::string::npos) << round;
        EXPECT_NE(stopSent, std::string::npos) << round;
        EXPECT_LT(exit, stopSent);
    }
}

TEST_F(Sends, ServiceReceivesTheStopWhileAHostCallbackRuns) {
    startAndConfigure(kEventWhenTold);
    std::promise<void> begun;
    bool heard = false;
    events.setReaction([&](const support::HostEvent&) {
        begun.set_value();
        heard = standin.waitForPackets(1, support::kStop) && standin.waitForEvent("exit");
    });
    standin.signal("go");
    begun.get_future().wait();
    stop();
    EXPECT_TRUE(heard);
    EXPECT_EQ(standin.recorded("exit").at(0).at("code").number(), 0) << "it was not ended by force";
    EXPECT_EQ(support::logText().find("QuPCAudio exit timeout"), std::string::npos);
}

TEST_F(Sends, CallMadeWhileAHostCallbackIsUnderWayReachesTheServiceBeforeTheCallbackReturns) {
    startAndConfigure(kEventWhenTold);
    std::promise<void> begun;
    std::promise<bool> heard;
    events.setReaction([&](const support::HostEvent&) {
        begun.set_value();
        heard.set_value(standin.waitForPackets(1, support::kNotify, "accountID"));
    });
    standin.signal("go");
    begun.get_future().wait();
    EXPECT_TRUE(api.setAccountID(handle, "someone"));
    EXPECT_TRUE(heard.get_future().get());
    events.setReaction({});
}

} // namespace
