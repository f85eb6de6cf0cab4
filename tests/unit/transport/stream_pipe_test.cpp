#include "transport/stream_pipe.h"

#include "platform/thread_id.h"
#include "transport_support.h"

#include "support/pipe_peer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using support::PipePeer;
using Events = std::vector<Reports::Event>;

constexpr std::size_t kSixteenMegabytes = 16U << 20U;

std::string patternOf(std::size_t size) {
    std::string text(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : text) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return text;
}

class StreamPipe : public PipeTest {
protected:
    ~StreamPipe() override { loop.stop(); }

    void makePipe() {
        pipe = std::make_unique<TestPipe>(loop.loop());
        reports.attachTo(*pipe);
    }

    void connect() {
        ASSERT_TRUE(pipe->connect("p"));
        ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
        ASSERT_EQ(reports.statusOf(OBaseSocket::kConnected), 0);
    }

    /// A loop that runs, a peer, and a pipe connected to it that reads.
    void connectToPeer(PipePeer::Reads reads = PipePeer::Reads::kAtOnce) {
        peer = std::make_unique<PipePeer>(prefix + "p", reads);
        makePipe();
        loop.run();
        connect();
        ASSERT_TRUE(peer->waitForConnections(1));
        loop.call([this] { EXPECT_TRUE(pipe->readStart()); });
    }

    LoopThread loop;
    Reports reports;
    std::unique_ptr<TestPipe> pipe;
    std::unique_ptr<PipePeer> peer;
};

TEST_F(StreamPipe, FreshPipeHasNothing) {
    makePipe();
    EXPECT_EQ(pipe->handle(), nullptr);
    EXPECT_EQ(pipe->connectReq, nullptr);
    EXPECT_FALSE(pipe->connecting);
    EXPECT_FALSE(pipe->initialized);
}

TEST_F(StreamPipe, WithoutALibuvPipeReadingAndWritingAreRefused) {
    makePipe();
    EXPECT_FALSE(pipe->readStart());
    EXPECT_FALSE(pipe->readStop());
    EXPECT_FALSE(pipe->write(listOf("abc")));
}

TEST_F(StreamPipe, NamesOfAPipeThatWasNeverInitialisedAreEmpty) {
    makePipe();
    EXPECT_EQ(pipe->localName(), "");
    EXPECT_EQ(pipe->peerName(), "");
}

TEST_F(StreamPipe, InitMakesOnePipeInHandlePassingMode) {
    makePipe();
    loop.run();
    loop.call([this] {
        pipe->init();
        ASSERT_NE(pipe->handle(), nullptr);
        EXPECT_TRUE(pipe->initialized);
        EXPECT_EQ(pipe->handle()->data, static_cast<OBaseHandle*>(pipe.get()));
        EXPECT_EQ(pipe->handle()->loop, loop->uvLoop());
        EXPECT_EQ(pipe->handle()->type, UV_NAMED_PIPE);
        EXPECT_NE(pipe->pipe->ipc, 0);
        const uv_handle_t* first = pipe->handle();
        pipe->init();
        EXPECT_EQ(pipe->handle(), first);
        EXPECT_FALSE(pipe->write(listOf("abc"))) << "not connected, so not writable";
    });
}

TEST_F(StreamPipe, InitWithoutALoopDoesNothing) {
    TestPipe lone(nullptr);
    lone.init();
    EXPECT_EQ(lone.handle(), nullptr);
    EXPECT_FALSE(lone.initialized);
    EXPECT_FALSE(lone.connect("p"));
}

TEST_F(StreamPipe, WithoutAPrefixTheNameFollowsTheDefaultOne) {
    OStreamPipe::pipeNamePrefix.clear();
    peer = std::make_unique<PipePeer>(R"(\\.\pipe\uv_pipe.QuPCAudio)");
    makePipe();
    loop.run();
    ASSERT_TRUE(pipe->connect("QuPCAudio"));
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
    EXPECT_EQ(reports.statusOf(OBaseSocket::kConnected), 0);
    EXPECT_TRUE(peer->waitForConnections(1));
}

TEST_F(StreamPipe, WithAnEmptyNameThePathIsThePrefixAlone) {
    OStreamPipe::pipeNamePrefix.clear();
    peer = std::make_unique<PipePeer>(R"(\\.\pipe\uv_pipe.)");
    makePipe();
    loop.run();
    ASSERT_TRUE(pipe->connect(""));
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
    EXPECT_EQ(reports.statusOf(OBaseSocket::kConnected), 0);
    EXPECT_TRUE(peer->waitForConnections(1));
}

TEST_F(StreamPipe, ConnectMadeBeforeTheLoopRunsCompletesWhenItRuns) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    makePipe();
    ASSERT_TRUE(pipe->connect("p"));
    EXPECT_TRUE(pipe->initialized);
    EXPECT_TRUE(pipe->connecting);
    EXPECT_TRUE(reports.events().empty());
    loop.run();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
    EXPECT_EQ(reports.events(), Events({{1, 0}}));
    EXPECT_FALSE(pipe->connecting);
}

TEST_F(StreamPipe, ConnectFromAnotherThreadWhileTheLoopRunsReportsOnTheLoopThread) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    makePipe();
    std::uint32_t reportedOn = 0;
    auto reported = std::make_shared<Signal>();
    pipe->setEventCallback([&](OBaseSocket*, std::int32_t, std::int32_t) {
        reportedOn = platform::currentThreadId();
        reported->set();
    });
    loop.run();
    bool started = false;
    std::thread([&] { started = pipe->connect("p"); }).join();
    EXPECT_TRUE(started);
    ASSERT_TRUE(reported->wait());
    EXPECT_EQ(reportedOn, loop->threadId.load());
    EXPECT_TRUE(peer->waitForConnections(1));
}

TEST_F(StreamPipe, SecondConnectBeforeTheFirstCompletesIsRefused) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    makePipe();
    loop.run();
    const auto held = loop.hold();
    EXPECT_TRUE(pipe->connect("p"));
    EXPECT_FALSE(pipe->connect("other"));
    held->set();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
    loop.call([] {});
    EXPECT_EQ(reports.events(), Events({{1, 0}}));
}

TEST_F(StreamPipe, OfManyThreadsThatConnectAtOnceOneIsAccepted) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    makePipe();
    loop.run();
    const auto held = loop.hold();
    std::atomic<int> accepted{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { accepted += pipe->connect("p") ? 1 : 0; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    held->set();
    EXPECT_EQ(accepted.load(), 1);
    EXPECT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
}

TEST_F(StreamPipe, ConnectToAPipeThatNobodyServesReportsTheError) {
    makePipe();
    loop.run();
    ASSERT_TRUE(pipe->connect("nobody"));
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
    EXPECT_EQ(reports.statusOf(OBaseSocket::kConnected), UV_ENOENT);
    loop.call([this] {
        EXPECT_FALSE(pipe->connecting);
        EXPECT_TRUE(pipe->initialized);
        EXPECT_NE(pipe->handle(), nullptr);
        EXPECT_FALSE(pipe->write(listOf("abc")));
    });
}

TEST_F(StreamPipe, PipeWhoseConnectFailedConnectsWhenTheServiceIsThere) {
    makePipe();
    loop.run();
    for (int i = 0; i < 3; ++i) {
        auto failed = std::make_shared<Signal>();
        pipe->setEventCallback([failed](OBaseSocket*, std::int32_t, std::int32_t status) {
            EXPECT_EQ(status, UV_ENOENT);
            failed->set();
        });
        ASSERT_TRUE(pipe->connect("p"));
        ASSERT_TRUE(failed->wait());
    }
    loop.call([this] { reports.attachTo(*pipe); });
    peer = std::make_unique<PipePeer>(prefix + "p");
    const uv_connect_t* request = pipe->connectReq.get();
    connect();
    EXPECT_EQ(pipe->connectReq.get(), request) << "the request is reused";
    loop.call([this] {
        EXPECT_TRUE(pipe->readStart());
        EXPECT_TRUE(pipe->write(listOf("hello")));
    });
    ASSERT_TRUE(peer->waitForBytes(5));
    peer->send("answer");
    ASSERT_TRUE(reports.waitForBytes(6));
    EXPECT_EQ(reports.bytes(), "answer");
    EXPECT_EQ(reports.events(), Events({{1, 0}})) << "replacing the failed pipe is no event";
}

TEST_F(StreamPipe, ConnectOfAConnectedPipeCompletesAndKeepsTheConnection) {
    connectToPeer();
    auto again = std::make_shared<Signal>();
    std::int32_t status = -1;
    loop.call([&] {
        pipe->setEventCallback([&status, again](OBaseSocket*, std::int32_t, std::int32_t code) {
            status = code;
            again->set();
        });
    });
    ASSERT_TRUE(pipe->connect("p"));
    ASSERT_TRUE(again->wait());
    EXPECT_EQ(status, 0);
    loop.call([this] { EXPECT_TRUE(pipe->write(listOf("abc"))); });
    EXPECT_TRUE(peer->waitForBytes(3));
}

TEST_F(StreamPipe, PipeDestroyedDuringAPendingConnectReportsNothing) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    loop.run();
    for (const char* name : {"p", "nobody"}) {
        makePipe();
        loop.call([&] {
            ASSERT_TRUE(pipe->connect(name));
            ASSERT_TRUE(pipe->connecting);
            pipe.reset(); // neither the pipe nor the request is lost or freed twice: the address sanitizer
        });
    }
    loop.stop();
    EXPECT_TRUE(reports.events().empty());
}

TEST_F(StreamPipe, LoopThatStopsDuringAPendingConnectEnds) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    makePipe();
    loop.run();
    const auto held = loop.hold();
    ASSERT_TRUE(pipe->connect("p"));
    loop->stop();
    held->set();
    loop.join();
    EXPECT_TRUE(reports.events().empty()) << "the shutdown has cleared the callbacks";
    EXPECT_EQ(pipe->handle(), nullptr);
    EXPECT_FALSE(pipe->connecting);
}

TEST_F(StreamPipe, CloseReportsEventTwoAndConnectMakesANewPipe) {
    connectToPeer();
    loop.call([this] { pipe->close(); });
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kClosed));
    EXPECT_EQ(reports.events(), Events({{1, 0}, {2, 0}}));
    EXPECT_TRUE(peer->waitForEnd());
    loop.call([this] {
        EXPECT_EQ(pipe->handle(), nullptr);
        EXPECT_FALSE(pipe->initialized);
    });
    ASSERT_TRUE(pipe->connect("p"));
    EXPECT_TRUE(peer->waitForConnections(2));
    ASSERT_TRUE(reports.waitForEvents(3));
    EXPECT_EQ(reports.events(), Events({{1, 0}, {2, 0}, {1, 0}}));
}

TEST_F(StreamPipe, ShutdownOfTheLoopClosesThePipeWithoutAReport) {
    connectToPeer();
    loop.stop();
    EXPECT_EQ(reports.events(), Events({{1, 0}}));
    EXPECT_EQ(pipe->handle(), nullptr);
    EXPECT_FALSE(pipe->initialized);
    EXPECT_TRUE(peer->waitForEnd());
    pipe->close(); // as the host's thread does before it destroys the pipe
}

TEST_F(StreamPipe, PipeDestroyedOnTheLoopThreadIsClosed) {
    connectToPeer();
    loop.call([this] { pipe.reset(); });
    EXPECT_TRUE(peer->waitForEnd());
    EXPECT_EQ(reports.events(), Events({{1, 0}}));
}

TEST_F(StreamPipe, ReadStopLeavesBytesInThePipeUntilReadStart) {
    connectToPeer();
    loop.call([this] { EXPECT_TRUE(pipe->readStop()); });
    peer->send("abc");
    EXPECT_TRUE(reports.bytes().empty());
    loop.call([this] { EXPECT_TRUE(pipe->readStart()); });
    EXPECT_TRUE(reports.waitForBytes(3));
    EXPECT_EQ(reports.bytes(), "abc");
}

TEST_F(StreamPipe, ReadStartWithoutAConnectionIsRefused) {
    makePipe();
    loop.run();
    loop.call([this] {
        pipe->init();
        EXPECT_FALSE(pipe->readStart());
    });
}

TEST_F(StreamPipe, SixteenMegabytesArriveWholeInBothDirections) {
    connectToPeer();
    const std::string out = patternOf(kSixteenMegabytes);
    const std::string in(out.rbegin(), out.rend());
    peer->send(in);
    loop.call([&] { EXPECT_TRUE(pipe->write(listOf(out))); });
    ASSERT_TRUE(peer->waitForBytes(out.size()));
    ASSERT_TRUE(reports.waitForBytes(in.size()));
    EXPECT_TRUE(peer->received() == out);
    EXPECT_TRUE(reports.bytes() == in);
    EXPECT_TRUE(reports.waitForWrites(1));
    EXPECT_EQ(reports.writes(), std::vector<std::int32_t>({0}));
}

TEST_F(StreamPipe, WritesOfManyThreadsArriveWhole) {
    connectToPeer();
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kWrites = 200;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (std::size_t n = 0; n < kWrites; ++n) {
                const OBufList list = listOf(std::string(16, static_cast<char>('a' + i)));
                loop->dispatch([this, list] { EXPECT_TRUE(pipe->write(list)); });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(peer->waitForBytes(kThreads * kWrites * 16));
    const std::string all = peer->received();
    for (std::size_t at = 0; at < all.size(); at += 16) {
        ASSERT_EQ(all.substr(at, 16), std::string(16, all[at])) << at;
    }
}

TEST_F(StreamPipe, PeerThatNeverReadsDoesNotHoldUpTheShutdown) {
    connectToPeer(PipePeer::Reads::kWhenTold);
    const OBufList list = listOf(std::string(kSixteenMegabytes, 'x'));
    loop.call([&] {
        EXPECT_TRUE(pipe->write(list));
        EXPECT_EQ(pipe->activeWriteReqs.size(), 1U);
    });
    loop.stop();
    EXPECT_TRUE(reports.writes().empty());
    EXPECT_TRUE(pipe->activeWriteReqs.empty()) << "cancelled, and back in the pool";
    EXPECT_EQ(pipe->freeWriteReqs.size(), 1U);
    EXPECT_EQ(list.front().buffer.use_count(), 1);
}

TEST_F(StreamPipe, PeerThatReadsLateGetsEverything) {
    connectToPeer(PipePeer::Reads::kWhenTold);
    const std::string out = patternOf(1U << 20U);
    loop.call([&] { EXPECT_TRUE(pipe->write(listOf(out))); });
    peer->startReading();
    ASSERT_TRUE(peer->waitForBytes(out.size()));
    EXPECT_TRUE(peer->received() == out);
}

TEST_F(StreamPipe, PeerThatDisconnectsIsReportedAsEventThree) {
    connectToPeer();
    peer->disconnect();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    EXPECT_EQ(reports.statusOf(OBaseSocket::kReadError), UV_EOF);
}

TEST_F(StreamPipe, BytesSentBeforeThePeerDisconnectedArriveFirst) {
    connectToPeer();
    peer->send("last words");
    ASSERT_TRUE(reports.waitForBytes(10));
    peer->disconnect();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    EXPECT_EQ(reports.bytes(), "last words");
}

TEST_F(StreamPipe, WriteAfterThePeerDisconnectedIsRefusedOrReportedAsFailed) {
    connectToPeer();
    peer->disconnect();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    bool accepted = false;
    loop.call([&] { accepted = pipe->write(listOf("abc")); });
    if (accepted) {
        ASSERT_TRUE(reports.waitForWrites(1));
        EXPECT_LT(reports.writes().front(), 0);
    }
    loop.call([this] { EXPECT_TRUE(pipe->activeWriteReqs.empty()); });
}

TEST_F(StreamPipe, ConnectedPipeKnowsItsPeersName) {
    connectToPeer();
    loop.call([this] {
        EXPECT_EQ(pipe->localName(), "");
        EXPECT_NE(pipe->peerName().find("p"), std::string::npos);
    });
}

/// A listening pipe on the loop of the test; what it hears is accepted by an OStreamPipe.
class AcceptingPipe : public StreamPipe {
protected:
    void listen() {
        loop.call([this] {
            uv_pipe_init(loop->uvLoop(), &mServer, 0);
            ASSERT_EQ(uv_pipe_bind(&mServer, (prefix + "p").c_str()), 0);
            mServer.data = nullptr; // no owner: the shutdown of the loop skips it
            ASSERT_EQ(uv_listen(server(), 4, [](uv_stream_t*, int) {}), 0);
        });
    }

    void endListening() {
        loop.call([this] { uv_close(reinterpret_cast<uv_handle_t*>(&mServer), nullptr); });
    }

    uv_stream_t* server() { return reinterpret_cast<uv_stream_t*>(&mServer); }

    uv_pipe_t mServer = {};
};

TEST_F(AcceptingPipe, AcceptedConnectionIsReportedAndCarriesBytes) {
    loop.run();
    listen();
    makePipe(); // the client
    connect();
    TestPipe accepted(loop.loop());
    Reports acceptedReports;
    acceptedReports.attachTo(accepted);
    // The listener learns of the client in a turn of the loop of its own.
    ASSERT_TRUE(support::eventually([&] {
        bool done = false;
        loop.call([&] { done = accepted.accept(server()); });
        return done;
    }));
    EXPECT_EQ(acceptedReports.events().back(), Reports::Event(1, 0));
    loop.call([&] {
        EXPECT_TRUE(accepted.readStart());
        EXPECT_TRUE(pipe->write(listOf("abc")));
    });
    ASSERT_TRUE(acceptedReports.waitForBytes(3));
    EXPECT_EQ(acceptedReports.bytes(), "abc");
    endListening();
    loop.stop();
}

TEST_F(AcceptingPipe, AcceptWithNobodyWaitingFailsAndReportsTheError) {
    loop.run();
    listen();
    TestPipe accepted(loop.loop());
    Reports acceptedReports;
    acceptedReports.attachTo(accepted);
    loop.call([&] { EXPECT_FALSE(accepted.accept(server())); });
    ASSERT_EQ(acceptedReports.events().size(), 1U);
    EXPECT_EQ(acceptedReports.events().front().first, 1);
    EXPECT_NE(acceptedReports.events().front().second, 0);
    EXPECT_TRUE(accepted.initialized);
    endListening();
    loop.stop();
}

TEST(StreamPipeWithoutALoop, AcceptIsRefused) {
    TestPipe lone(nullptr);
    uv_pipe_t server = {};
    EXPECT_FALSE(lone.accept(reinterpret_cast<uv_stream_t*>(&server)));
}

} // namespace
