// A pipe is made, named and closed.

#include "support/transport/fake_handle.h"
#include "support/transport/stream_pipe_fixture.h"

#include <string>
#include <vector>

using namespace support;

namespace {

using Events = std::vector<Reports::Event>;

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

TEST_F(StreamPipe, PipeMayGoWhileTheShutdownClosesIt) {
    connectToPeer();
    uv_timer_t* timer = newTimer(*loop.loop()); // younger than the pipe, so its end is reported first
    FakeHandleRecord record;
    {
        FakeHandle handle(loop.loop(), timer, record);
        handle.whenClosed = [this] {
            EXPECT_NE(pipe->handle(), nullptr);
            pipe.reset();
        };
        loop.stop();
    }
    EXPECT_EQ(record.count("closed"), 1);
    EXPECT_TRUE(peer->waitForEnd());
    discardTimer(*loop.loop(), timer);
}

TEST_F(StreamPipe, PipeOfALoopThatNeverRanMayGoWhileItConnects) {
    peer = std::make_unique<PipePeer>(prefix + "p");
    for (const char* name : {"p", "nobody"}) {
        auto never = std::make_shared<OUVLoop>();
        TestPipe begun(std::move(never));
        EXPECT_TRUE(begun.connect(name)); // the end of pipe and loop: the address sanitizer
    }
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

TEST_F(StreamPipe, ConnectedPipeKnowsItsPeersName) {
    connectToPeer();
    loop.call([this] {
        EXPECT_EQ(pipe->localName(), "");
        EXPECT_NE(pipe->peerName().find("p"), std::string::npos);
    });
}

} // namespace
