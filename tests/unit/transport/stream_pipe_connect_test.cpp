// How a pipe connects: once, again, and when the peer or the loop goes meanwhile.

#include "support/transport/stream_pipe_fixture.h"

#include "platform/thread_id.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace support;

namespace {

using Events = std::vector<Reports::Event>;

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

TEST_F(StreamPipe, ConnectToAnotherNameIsRefusedAndTheConnectionKept) {
    connectToPeer();
    const PipePeer elsewhere(prefix + "q");
    auto again = std::make_shared<Signal>();
    std::int32_t status = 0;
    loop.call([&] {
        pipe->setEventCallback([&status, again](OBaseSocket*, std::int32_t, std::int32_t code) {
            status = code;
            again->set();
        });
    });
    ASSERT_TRUE(pipe->connect("q"));
    ASSERT_TRUE(again->wait());
    EXPECT_EQ(status, UV_EISCONN);
    loop.call([this] { EXPECT_TRUE(pipe->write(listOf("abc"))); });
    EXPECT_TRUE(peer->waitForBytes(3));
}

TEST_F(StreamPipe, ConnectOfAPipeWhosePeerHasGoneAsksTheSystemAnew) {
    for (const bool reads : {true, false}) { // without reading, libuv does not report that the peer has gone
        LoopThread own;
        TestPipe lonely(own.loop());
        Reports seen;
        seen.attachTo(lonely);
        peer = std::make_unique<PipePeer>(prefix + "p");
        own.run();
        ASSERT_TRUE(lonely.connect("p"));
        ASSERT_TRUE(seen.waitForEvent(OBaseSocket::kConnected));
        if (reads) {
            own.call([&] { EXPECT_TRUE(lonely.readStart()); });
        }
        ASSERT_TRUE(peer->waitForConnections(1));
        peer = nullptr;
        if (reads) {
            ASSERT_TRUE(seen.waitForEvent(OBaseSocket::kReadError));
        }
        const std::size_t before = seen.events().size();
        ASSERT_TRUE(lonely.connect("p"));
        ASSERT_TRUE(seen.waitForEvents(before + 1));
        EXPECT_EQ(seen.events().back(), Reports::Event(OBaseSocket::kConnected, UV_ENOENT)) << reads;
        own.stop();
    }
}

TEST_F(StreamPipe, PipeWhosePeerHasGoneConnectsToTheNextOne) {
    connectToPeer();
    peer->disconnect();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    ASSERT_TRUE(pipe->connect("p"));
    EXPECT_TRUE(peer->waitForConnections(2));
    ASSERT_TRUE(reports.waitForEvents(3));
    EXPECT_EQ(reports.events().back(), Reports::Event(OBaseSocket::kConnected, 0));
    loop.call([this] { EXPECT_TRUE(pipe->write(listOf("abc"))); });
    EXPECT_TRUE(peer->waitForBytes(3));
}

TEST_F(StreamPipe, ConnectThatIsQueuedWhenItsPipeGoesIsForgotten) {
    makePipe();
    loop.run();
    auto entered = std::make_shared<Signal>();
    auto queued = std::make_shared<Signal>();
    loop->post([this, entered, queued] {
        entered->set();
        queued->wait();
        pipe.reset();
    });
    ASSERT_TRUE(entered->wait());
    ASSERT_TRUE(pipe->connect("p")); // returns although the loop is busy
    queued->set();
    loop.stop(); // the address sanitizer sees a pipe that is used after it has gone
    EXPECT_TRUE(reports.events().empty());
}

TEST_F(StreamPipe, EveryConnectThatWasAcceptedHasItsCallbackHoweverTheLoopStops) {
    struct Counting : TestPipe {
        using TestPipe::TestPipe;

        void onConnect(uv_connect_t*, std::int32_t status) override { statuses.push_back(status); }

        std::vector<std::int32_t> statuses;
    };

    peer = std::make_unique<PipePeer>(prefix + "p");
    Counting counting(loop.loop());
    loop.run();
    const auto held = loop.hold();
    EXPECT_EQ(loop->stop(), 0);
    ASSERT_TRUE(counting.connect("p")); // queued after the stop
    held->set();
    loop.join();
    EXPECT_EQ(counting.statuses, std::vector<std::int32_t>({UV_ECANCELED}));
    EXPECT_FALSE(counting.connect("p")) << "a stopped loop reports nothing any more";
    EXPECT_FALSE(counting.connecting);
    EXPECT_EQ(counting.handle(), nullptr);
}

// The shutdown has closed the pipe when its owner destroys it, and libuv has not finished with it.

} // namespace
