// What uninitSonviaAudioService does, step by step.

#include "api/life_cycle.h"
#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace support;

namespace {

class ShutDown : public testing::Test {
protected:
    std::vector<std::string> uninit() {
        LogCapture log;
        EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
        std::vector<std::string> texts;
        for (const LogLine& line : log.lines(kApiTag)) {
            texts.push_back(std::string(1, line.letter) + " " + line.text);
        }
        return texts;
    }

    void giveProcess(bool ends) {
        direct.record->process = std::make_unique<FakeProcess>(ends, seen, &direct.stream);
    }

    Host host;
    DirectHandle direct;
    FakeProcess::Seen seen;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(ShutDown, WithoutAThreadItStillSendsTheStopAndReleasesTheProcess) {
    giveProcess(true);
    EXPECT_EQ(uninit(),
              (Texts{"I uninitSonviaAudioService", "I send StopSonviaAudioService notify!", "I stop loop!"}));
    EXPECT_EQ(
        direct.stream.packets(),
        (std::vector<oracle::Packet>{{0x24, 8193, 1, oracle::encodeInt("StopSonviaAudioService", 200004)}}));
    EXPECT_TRUE(seen.released);
}

TEST_F(ShutDown, AServiceThatEndsInTimeIsNotKilled) {
    giveProcess(true);
    uninit();
    EXPECT_EQ(seen.waits, 1);
    EXPECT_EQ(seen.limit, std::chrono::milliseconds(1000));
    EXPECT_EQ(seen.packetsBefore, 1U); // the request is sent before the wait
    EXPECT_EQ(seen.forced, 0);
}

TEST_F(ShutDown, AServiceThatDoesNotEndIsKilledByName) {
    giveProcess(false);
    EXPECT_EQ(uninit(), (Texts{"I uninitSonviaAudioService", "I send StopSonviaAudioService notify!",
                               "I QuPCAudio exit timeout", "I kill QuPCAudio process", "I stop loop!"}));
    EXPECT_EQ(seen.forced, 1) << "nothing of its name runs: it is ended by its own handle";
    EXPECT_TRUE(seen.released);
}

TEST_F(ShutDown, WithoutAProcessNothingIsWaitedFor) {
    EXPECT_EQ(uninit(),
              (Texts{"I uninitSonviaAudioService", "I send StopSonviaAudioService notify!", "I stop loop!"}));
}

TEST_F(ShutDown, TheStopTakesTheNextNumberOfTheExports) {
    exitAudioProjection(direct.handle);
    exitAudioProjection(direct.handle);
    uninit();
    EXPECT_EQ(direct.stream.packets().back().sequence, 3);
}

TEST_F(ShutDown, TheThreadIsStoppedAndJoined) {
    {
        LogCapture begin; // the line with which the thread begins
        ASSERT_TRUE(startLoopThread(*direct.record));
    }
    giveProcess(true);
    Texts texts = uninit();
    // Written by the loop thread, before or after "stop loop!".
    EXPECT_EQ(std::erase(texts, "W SonviaPCDll will out run"), 1U);
    EXPECT_EQ(texts, (Texts{"I uninitSonviaAudioService", "I send StopSonviaAudioService notify!",
                            "I stop loop!", "I exit thread!"}));
}

TEST_F(ShutDown, TheLoopIsFreed) {
    const std::weak_ptr<OUVLoop> loop = direct.record->loop;
    ASSERT_TRUE(startLoopThread(*direct.record));
    uninit();
    EXPECT_TRUE(loop.expired());
}

TEST_F(ShutDown, TheDisconnectionThatItCausesIsNotReported) {
    direct.connected();
    direct.record->session->init(Host::record());

    /// Ends, and takes the connection with it, while it is waited for.
    struct Leaving : platform::Process {
        explicit Leaving(QuPCAudioMessage& its) : session(its) {}

        bool waitForEnd(std::chrono::milliseconds) override {
            session.onError(UV_EOF);
            return true;
        }

        void endByForce() override {}

        QuPCAudioMessage& session;
    };

    direct.record->process = std::make_unique<Leaving>(*direct.record->session);
    uninit();
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ShutDown, ADisconnectionWhileTheStopIsBeingSentIsNotReportedEither) {
    /// A service that leaves as soon as the stop has reached it, before the write has returned.
    struct Leaving : RecordingSocket {
        bool write(const OBufList& list) override {
            session->onError(UV_EOF);
            return RecordingSocket::write(list);
        }

        QuPCAudioMessage* session = nullptr;
    };

    Leaving stream;
    stream.session = direct.record->session.get();
    direct.connected();
    direct.record->session->init(Host::record());
    direct.record->session->setStream(&stream);
    uninit();
    EXPECT_EQ(stream.packets(), (std::vector<oracle::Packet>{
                                    {0x24, 8193, 1, oracle::encodeInt("StopSonviaAudioService", 200004)}}));
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ShutDown, TheHandlesLoopGoesThenTheSessionThenTheProcess) {
    std::vector<std::string> steps;

    struct LastSession : QuPCAudioMessage {
        LastSession(std::shared_ptr<OUVLoop> its, std::vector<std::string>& places)
            : QuPCAudioMessage(std::move(its)), steps(places) {}

        ~LastSession() override {
            constexpr long kOwnShares = 2; // one for each of its handles
            steps.emplace_back(mLoop.use_count() == kOwnShares ? "session, with the last shares of the loop"
                                                               : "session");
        }

        void close() override {
            steps.emplace_back("close");
            QuPCAudioMessage::close();
        }

        std::vector<std::string>& steps;
    };

    struct LastProcess : platform::Process {
        explicit LastProcess(std::vector<std::string>& places) : steps(places) {}

        ~LastProcess() override { steps.emplace_back("process"); }

        bool waitForEnd(std::chrono::milliseconds) override { return true; }

        void endByForce() override {}

        std::vector<std::string>& steps;
    };

    direct.record->session = std::make_unique<LastSession>(direct.record->loop, steps);
    direct.record->session->setStream(&direct.stream);
    direct.record->process = std::make_unique<LastProcess>(steps);
    uninit();
    EXPECT_EQ(steps, (Texts{"close", "session, with the last shares of the loop", "process"}));
}

TEST_F(ShutDown, AHostThatTriesAgainOnEveryErrorDoesNotKeepItFromEnding) {
    PipeSession names; // no service listens
    LogCapture quiet;
    AudioServiceHandle* const handle = direct.handle;
    const AudioServiceParam record = Host::record();
    bool lastTry = true;
    Host::whenError([&](int, int) { lastTry = setParam(handle, &record); });
    ASSERT_TRUE(setParam(handle, &record));
    ASSERT_TRUE(Host::waitForErrors(3));
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
    EXPECT_FALSE(lastTry);
}

TEST_F(ShutDown, AConnectThatWasBegunWithoutAThreadIsTakenBack) {
    PipeSession names; // no service listens
    LogCapture quiet;
    direct.record->session->init(Host::record());
    EXPECT_NE(direct.record->session->handle(), nullptr);
    EXPECT_TRUE(uninitSonviaAudioService(direct.handle));
}
