// The session against a real pipe whose other end is plain libuv.

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <thread>

using namespace support;
using oracle::Bytes;
using oracle::encodeInt;
using oracle::encodeText;

namespace {

using Calls = std::vector<Host::Call>;

std::vector<std::string> textsOf(const std::vector<LogLine>& lines) {
    std::vector<std::string> texts;
    for (const LogLine& line : lines) {
        texts.push_back(std::string(1, line.letter) + " " + line.text);
    }
    return texts;
}

class Session : public testing::Test {
protected:
    void connect() {
        pipe.listen();
        ASSERT_TRUE(pipe.session->init(Host::record()));
        pipe.runLoop();
        ASSERT_EQ(pipe.waitForPackets(1).size(), 1U);
        ASSERT_TRUE(pipe.waitForConnects(1));
    }

    Host host;
    PipeSession pipe;
};

} // namespace

TEST_F(Session, TheServiceFirstReceivesTheDeviceInformationWithNumberZero) {
    LogCapture log;
    connect();
    EXPECT_EQ(textsOf(log.lines(kSessionTag)),
              (std::vector<std::string>{"I Connect successed, start recv.", "I send notify koru info."}));
    const oracle::Packet first = pipe.waitForPackets(1).at(0);
    EXPECT_EQ(first.magic, 0x24);
    EXPECT_EQ(first.command, 34);
    EXPECT_EQ(first.sequence, 0);
    EXPECT_EQ(koruInfoOf(first.payload).size(), 6U);
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(Session, NothingOvertakesTheDeviceInformation) {
    pipe.listen();
    ASSERT_TRUE(pipe.session->init(Host::record()));
    EXPECT_TRUE(pipe.session->setAccountID("early"));
    pipe.session->endProjection(seriesFrom(77));
    pipe.runLoop();
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(1);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(koruInfoOf(packets[0].payload).at(0).second, "earlyccount"); // "early" over "the account"
    EXPECT_EQ(packets[0].sequence, 1);                                     // setAccountID took 0
}

TEST_F(Session, WithNoServiceListeningInitIsTrueAndTheErrorFollows) {
    LogCapture log;
    EXPECT_TRUE(pipe.session->init(Host::record()));
    EXPECT_TRUE(Host::errors().empty());
    pipe.runLoop();
    ASSERT_TRUE(Host::waitForErrors(1));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
    EXPECT_EQ(textsOf(log.lines(kSessionTag)),
              std::vector<std::string>{"E connect failed " + std::to_string(int{UV_ENOENT})});
}

TEST_F(Session, ALaterRecordConnectsAgainAfterAFailure) {
    EXPECT_TRUE(pipe.session->init(Host::record()));
    pipe.runLoop();
    ASSERT_TRUE(Host::waitForErrors(1));
    pipe.listen();
    EXPECT_TRUE(pipe.session->init(Host::record()));
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(1);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].sequence, 0);
    EXPECT_EQ(Host::errors().size(), 1U);
}

TEST_F(Session, EveryFailedAttemptIsReportedOnce) {
    pipe.session->init(Host::record());
    pipe.runLoop();
    for (std::size_t attempt = 1; attempt <= 5; ++attempt) {
        ASSERT_TRUE(Host::waitForErrors(attempt));
        EXPECT_EQ(Host::errors().size(), attempt);
        ASSERT_TRUE(pipe.session->init(Host::record()));
    }
    ASSERT_TRUE(Host::waitForErrors(6));
}

TEST_F(Session, TheHostMayTryAgainInsideItsErrorCallback) {
    std::atomic<int> tries{0};
    Host::whenError([&](int, int) {
        if (++tries == 3) {
            pipe.listen();
        }
        EXPECT_TRUE(pipe.session->init(Host::record()));
    });
    pipe.session->init(Host::record());
    pipe.runLoop();
    ASSERT_TRUE(Host::waitForErrors(3));
    ASSERT_TRUE(pipe.waitForConnects(4));
    EXPECT_EQ(pipe.waitForPackets(1).size(), 1U);
    EXPECT_EQ(Host::errors(), Calls(3, {-2, 0}));
}

TEST_F(Session, AServiceThatClosesIsALostConnectionReportedOnce) {
    connect();
    pipe.peer->disconnect();
    ASSERT_TRUE(Host::waitForErrors(1));
    ASSERT_TRUE(pipe.waitForStreamErrors(1));
    EXPECT_EQ(Host::errors(), (Calls{{-2, UV_EOF}}));
}

TEST_F(Session, AServiceThatClosesInTheMiddleOfAPacketIsReportedOnceToo) {
    connect();
    const Bytes whole = notify(encodeInt("change-mode", 1));
    pipe.sendToSession(oracle::join({whole, Bytes(whole.begin(), whole.begin() + 12)}));
    ASSERT_TRUE(Host::waitForEvents(1));
    pipe.peer->disconnect();
    ASSERT_TRUE(Host::waitForErrors(1));
    EXPECT_EQ(Host::errors(), (Calls{{-2, UV_EOF}}));
    EXPECT_EQ(Host::events(), (Calls{{200006, 1}}));
}

TEST_F(Session, AfterALostConnectionTheNextRecordIsTakenAndNoConnectionIsMade) {
    connect();
    pipe.peer->disconnect();
    ASSERT_TRUE(Host::waitForErrors(1));
    LogCapture log;
    EXPECT_TRUE(pipe.session->init(Host::record()));
    EXPECT_EQ(textsOf(log.lines(kSessionTag)), std::vector<std::string>{"I send notify koru info."});
    EXPECT_EQ(pipe.session->connects.load(), 1);
}

TEST_F(Session, AStreamErrorAfterTheEndOfTheSessionProducesNoCallback) {
    connect();
    pipe.session->stopService(seriesFrom(1));
    pipe.peer->disconnect();
    ASSERT_TRUE(pipe.waitForStreamErrors(1));
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(Session, AnIdIsSentOverTheOpenConnection) {
    connect();
    EXPECT_TRUE(pipe.session->setAccountID("someone"));
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(2);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(accountOf(packets[1].payload), "someoneount");
    EXPECT_EQ(packets[1].sequence, 1);
}

TEST_F(Session, ALaterRecordIsSentOverTheOpenConnection) {
    connect();
    AudioServiceParam param = Host::record();
    setText(param.model, "another");
    EXPECT_TRUE(pipe.session->init(param));
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(2);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(koruInfoOf(packets[1].payload).at(3).second, "another");
    EXPECT_EQ(pipe.session->connects.load(), 1);
}

TEST_F(Session, NotificationsReachTheHostHoweverTheServiceCutsThem) {
    connect();
    const Bytes stream =
        oracle::join({notify(encodeInt("change-mode", 1)), notify({}), notify(encodeInt("change-mode", 2))});
    for (const std::uint8_t byte : stream) {
        pipe.sendToSession({byte});
    }
    ASSERT_TRUE(Host::waitForEvents(2));
    EXPECT_EQ(Host::events(), (Calls{{200006, 1}, {200006, 2}}));
}

TEST_F(Session, ThousandPacketsInOneWriteReachTheHostInOrder) {
    connect();
    Bytes stream;
    Calls expected;
    for (int mode = 0; mode < 1000; ++mode) {
        const Bytes next = notify(encodeInt("change-mode", mode));
        stream.insert(stream.end(), next.begin(), next.end());
        expected.emplace_back(200006, mode);
    }
    pipe.sendToSession(stream);
    ASSERT_TRUE(Host::waitForEvents(1000));
    EXPECT_EQ(Host::events(), expected);
}

TEST_F(Session, ANameOfSixteenMegabytesArrivesWhole) {
    connect();
    const std::string name(16 * 1024 * 1024, 'n');
    pipe.sendToSession(
        oracle::join({notify(encodeText("phone-name", name)), notify(encodeInt("change-mode", 1))}));
    ASSERT_TRUE(Host::waitForEvents(1));
    ASSERT_NE(pipe.session->getPhoneName(), nullptr);
    EXPECT_TRUE(pipe.session->getPhoneName() == name);
}

TEST_F(Session, CallbacksOnTheLoopThreadMayCallBackIntoTheSession) {
    connect();
    std::atomic<int> done{0};
    Host::whenEvent([&](int, int) {
        EXPECT_TRUE(pipe.loop->onLoopThread());
        EXPECT_TRUE(pipe.session->setAccountID("abc"));
        EXPECT_TRUE(pipe.session->init(Host::record()));
        EXPECT_EQ(pipe.session->getPlayerState(), 4U);
        EXPECT_STREQ(pipe.session->getPhoneName(), "Handset A");
        ++done;
    });
    pipe.sendToSession(notify(encodeText("phone-name", "Handset A")));
    pipe.sendToSession(notify(encodeInt("change-mode", 1)));
    ASSERT_TRUE(Host::waitForEvents(1));
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(3);
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(accountOf(packets[1].payload), "abc account");
    EXPECT_EQ(koruInfoOf(packets[2].payload).size(), 6U);
    EXPECT_TRUE(eventually("the callback has returned",
                           [&done] { return done.load() == 1; })); // the service may be ahead of it
}

TEST_F(Session, AStopDuringTheConnectFollowsTheDeviceInformation) {
    constexpr std::uint16_t kStop = 8193;
    PipeSession hasty;
    PipePeer& service = hasty.listen();
    ASSERT_TRUE(hasty.session->init(Host::record()));
    ASSERT_TRUE(service.waitForConnections(1)); // the service has taken it, the session has not heard of that
    hasty.session->stopService(seriesFrom(1));
    hasty.runLoop();
    const std::vector<oracle::Packet> packets = hasty.waitForPackets(2);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(koruInfoOf(packets[0].payload).size(), 6U);
    EXPECT_EQ(packets[1].command, kStop);
}

TEST_F(Session, DestroyingASessionClosesItsEndOfThePipe) {
    auto other = std::make_unique<PipeSession>();
    PipePeer& service = other->listen();
    other->session->init(Host::record());
    other->runLoop();
    ASSERT_TRUE(service.waitForConnections(1));
    std::unique_ptr<PipePeer> survivor = std::move(other->peer);
    other = nullptr;
    EXPECT_TRUE(survivor->waitForEnd());
}

TEST_F(Session, ASessionThatNeverConnectedCanBeDestroyed) {
    PipeSession never;
    PipeSession begun;
    begun.session->init(Host::record());
}

TEST_F(Session, ServiceThatDoesNotReadCostsABoundedNumberOfUnsentBytes) {
    constexpr int kLimit =
        60000; // more than the bound holds of the shortest packets that carry a text of 255 bytes
    PipeSession stuffed;
    stuffed.listen(PipePeer::Reads::kWhenTold);
    LogCapture log;
    ASSERT_TRUE(stuffed.session->init(Host::record()));
    stuffed.runLoop();
    ASSERT_TRUE(stuffed.waitForConnects(1));
    const std::string text(255, 'a');
    int sent = 0;
    while (stuffed.session->refusedWrites.load() == 0 && sent < kLimit) {
        ASSERT_TRUE(stuffed.session->setAccountID(text.c_str()));
        ++sent;
    }
    EXPECT_EQ(stuffed.session->refusedWrites.load(), 1);
    const std::vector<LogLine> lines = log.lines(kSessionTag);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const LogLine& line) {
                                return line.letter == 'E' && line.function == "QuPCAudioMessage::write";
                            }),
              1);
    stuffed.peer->startReading();
    EXPECT_FALSE(stuffed.waitForPackets(1000).empty()) << "what was accepted before arrives";
}

// As when a service sends half a frame's header: libuv waits for the rest.
TEST_F(Session, LoopThatIsStuckCostsABoundedNumberOfWaitingPacketsAndTheStopIsNotOneOfThem) {
    constexpr std::size_t kLimit = 1000;
    DirectSession direct;
    LogCapture log;
    std::promise<void> stuck;
    std::promise<void> goOn;
    std::thread loopThread([&direct] { direct.loop->run(); });
    direct.loop->waitForRun();
    ASSERT_EQ(direct.loop->post([&] {
        stuck.set_value();
        goOn.get_future().wait();
    }),
              0);
    stuck.get_future().wait();
    for (std::size_t call = 0; call < kLimit; ++call) {
        ASSERT_NE(direct.loop->queue([] {}), nullptr);
    }
    EXPECT_TRUE(direct.session.setAccountID("someone"));
    direct.session.endProjection(seriesFrom(1));
    direct.session.stopService(seriesFrom(1));
    goOn.set_value();
    EXPECT_EQ(direct.loop->stop(), 0);
    loopThread.join();
    const std::vector<LogLine> lines = log.lines(kSessionTag);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const LogLine& line) {
                                return line.letter == 'E' &&
                                       line.text == "1000 packets are waiting, one is dropped";
                            }),
              2);
    ASSERT_EQ(direct.stream.packets().size(), 1U);
    EXPECT_EQ(direct.stream.packets()[0].payload, oracle::encodeInt("StopSonviaAudioService", 200004));
}
