#include "transport/socket.h"

#include "support/transport/socket_fixture.h"

#include "support/pipe_peer.h"

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace support;

namespace {

using Steps = std::vector<std::string>;

std::shared_ptr<OUVLoop> newLoop() {
    return std::shared_ptr<OUVLoop>(new OUVLoop);
}

uv_stream_t* streamOf(TestPipe& pipe) {
    return reinterpret_cast<uv_stream_t*>(pipe.handle());
}

/// A thing that says so when it goes: put into a callback it shows when that callback is destroyed.
std::shared_ptr<void> leavingNote(Steps& steps, const char* text) {
    return {nullptr, [&steps, text](void*) { steps.emplace_back(text); }};
}

void setCallbacksThatNoteTheirEnd(OBaseSocket& socket, Steps& steps) {
    socket.setWriteCallback(
        [note = leavingNote(steps, "write")](OBaseSocket*, const OBufList&, std::int32_t) {});
    socket.setEventCallback(
        [note = leavingNote(steps, "event")](OBaseSocket*, std::int32_t, std::int32_t) {});
    socket.setReadCallback(
        [note = leavingNote(steps, "read")](OBaseSocket*, const OBufList&, std::int32_t) {});
    steps.clear(); // assigning may have moved them about
}

TEST_F(SocketOperations, FreshSocketIsEmpty) {
    const auto loop = newLoop();
    TestPipe fresh(loop);
    EXPECT_EQ(fresh.loop(), loop.get());
    EXPECT_TRUE(fresh.freeWriteReqs.empty());
    EXPECT_TRUE(fresh.activeWriteReqs.empty());
    EXPECT_TRUE(fresh.pendingReads.empty());
    EXPECT_FALSE(fresh.readCallback);
    EXPECT_FALSE(fresh.writeCallback);
    EXPECT_FALSE(fresh.eventCallback);
    EXPECT_EQ(socket.loop(), nullptr);
}

TEST_F(SocketOperations, ReadGoesToTheReadCallback) {
    OBaseSocket* from = nullptr;
    OBufList got;
    std::int32_t status = -1;
    socket.setReadCallback([&](OBaseSocket* s, OBufList list, std::int32_t code) {
        from = s;
        got = std::move(list);
        status = code;
    });
    socket.onRead(listOf("abc"), 5);
    EXPECT_EQ(from, &socket);
    EXPECT_EQ(totalLength(got), 3U);
    EXPECT_EQ(status, 5);
}

TEST_F(SocketOperations, ErrorIsEventThree) {
    reports.attachTo(socket);
    socket.onError(UV_EOF);
    EXPECT_EQ(reports.events(), std::vector<Reports::Event>({{3, UV_EOF}}));
}

TEST_F(SocketOperations, WrittenListGoesToTheWriteCallback) {
    OBaseSocket* from = nullptr;
    std::uint64_t length = 0;
    std::int32_t status = 0;
    socket.setWriteCallback([&](OBaseSocket* s, const OBufList& list, std::int32_t code) {
        from = s;
        length = totalLength(list);
        status = code;
    });
    socket.onWrite(listOf("abcd"), UV_EPIPE);
    EXPECT_EQ(from, &socket);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(status, UV_EPIPE);
}

TEST_F(SocketOperations, WithoutCallbacksNothingHappens) {
    socket.onRead(listOf("abc"), 0);
    socket.onWrite(listOf("abc"), 0);
    socket.onError(UV_EOF);
    socket.onClosed();
}

TEST_F(SocketOperations, ClearingEmptiesReadWriteAndEventCallbackInThatOrder) {
    Steps steps;
    setCallbacksThatNoteTheirEnd(socket, steps);
    socket.clearCallbacks();
    EXPECT_EQ(steps, Steps({"read", "write", "event"}));
    EXPECT_FALSE(socket.readCallback);
    EXPECT_FALSE(socket.writeCallback);
    EXPECT_FALSE(socket.eventCallback);
}

TEST_F(SocketOperations, DestructionDropsEventWriteAndReadCallbackInThatOrder) {
    Steps steps;
    {
        TestPipe other(nullptr);
        setCallbacksThatNoteTheirEnd(other, steps);
    }
    EXPECT_EQ(steps, Steps({"event", "write", "read"}));
}

TEST_F(SocketOperations, SetLoopTakesOwnership) {
    auto* loop = new OUVLoop;
    std::weak_ptr<OUVLoop> watch;
    {
        TestPipe other(newLoop());
        other.setLoop(loop);
        EXPECT_EQ(other.loop(), loop);
        watch = loop->weak_from_this();
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());
}

TEST_F(SocketOperations, RequestsAreUsedAgainInTheOrderInWhichTheyWereFreed) {
    OWriteReq* first = socket.acquireWriteReq(listOf("a"));
    OWriteReq* second = socket.acquireWriteReq(listOf("b"));
    OWriteReq* third = socket.acquireWriteReq(listOf("c"));
    for (OWriteReq* request : {second, third, first}) {
        socket.recycle(request);
    }
    EXPECT_EQ(socket.freeWriteReqs, (std::list<OWriteReq*>{second, third, first}));
    EXPECT_EQ(socket.acquireWriteReq(listOf("d")), second);
    EXPECT_EQ(socket.acquireWriteReq(listOf("e")), third);
    for (OWriteReq* request : {third, second}) {
        socket.recycle(request);
    }
    EXPECT_EQ(socket.freeWriteReqs, (std::list<OWriteReq*>{first, third, second}));
}

// Two threads take while a third one gives back, as completions do. The thread sanitizer sees a missing lock as well.
TEST_F(SocketOperations, RequestPoolIsWholeWhateverThreadsTakeAndGiveBack) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([this] {
            const OBufList list = listOf("abc");
            for (int round = 0; round < 2000; ++round) {
                OWriteReq* one = socket.acquireWriteReq(list);
                OWriteReq* other = socket.acquireWriteReq(list);
                socket.recycle(one);
                socket.recycle(other);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(socket.activeWriteReqs.empty());
    EXPECT_GE(socket.freeWriteReqs.size(), 2U);
    EXPECT_LE(socket.freeWriteReqs.size(), 6U);
}

/// A connected pipe on a running loop, and its peer.
class ConnectedSocket : public PipeTest {
protected:
    void connectTo(PipePeer::Reads reads) {
        peer = std::make_unique<PipePeer>(prefix + "p", reads);
        reports.attachTo(*socket);
        loop.run();
        ASSERT_TRUE(socket->connect("p"));
        ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kConnected));
        ASSERT_EQ(reports.statusOf(OBaseSocket::kConnected), 0);
        ASSERT_TRUE(peer->waitForConnections(1));
    }

    ~ConnectedSocket() override { loop.stop(); }

    bool write(const OBufList& list) {
        bool accepted = false;
        loop.call([&] { accepted = socket->write(list); });
        return accepted;
    }

    LoopThread loop;
    Reports reports;
    std::unique_ptr<TestPipe> socket = std::make_unique<TestPipe>(loop.loop());
    std::unique_ptr<PipePeer> peer;
};

TEST_F(ConnectedSocket, WriteRequestIsReusedForTheNextWrite) {
    connectTo(PipePeer::Reads::kAtOnce);
    ASSERT_TRUE(write(listOf("first")));
    ASSERT_TRUE(reports.waitForWrites(1));
    OWriteReq* request = nullptr;
    std::size_t room = 0;
    loop.call([&] {
        EXPECT_TRUE(socket->activeWriteReqs.empty());
        ASSERT_EQ(socket->freeWriteReqs.size(), 1U);
        request = socket->freeWriteReqs.front();
        EXPECT_EQ(request->inUse, 0U);
        EXPECT_TRUE(request->views.empty());
        EXPECT_TRUE(request->bufs.empty());
        room = request->bufs.capacity();
        EXPECT_GE(room, 1U) << "the room for the buffers is kept";
    });
    for (std::size_t i = 2; i < 50; ++i) {
        ASSERT_TRUE(write(listOf("next")));
        ASSERT_TRUE(reports.waitForWrites(i));
    }
    loop.call([&] {
        ASSERT_EQ(socket->freeWriteReqs.size(), 1U);
        EXPECT_EQ(socket->freeWriteReqs.front(), request);
        EXPECT_EQ(request->bufs.capacity(), room);
    });
}

TEST_F(ConnectedSocket, EveryWriteInFlightHasARequestOfItsOwnAndThePoolKeepsThem) {
    connectTo(PipePeer::Reads::kAtOnce);
    loop.call([&] {
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(socket->write(listOf("abc")));
        }
        ASSERT_EQ(socket->activeWriteReqs.size(), 5U);
        for (const OWriteReq* request : socket->activeWriteReqs) {
            EXPECT_EQ(request->inUse, 1U);
            EXPECT_EQ(request->owner, socket.get());
            EXPECT_EQ(request->req.data, request);
            EXPECT_EQ(request->views.size(), 1U);
        }
    });
    ASSERT_TRUE(reports.waitForWrites(5));
    loop.call([&] {
        EXPECT_TRUE(socket->activeWriteReqs.empty());
        EXPECT_EQ(socket->freeWriteReqs.size(), 5U);
    });
}

TEST_F(ConnectedSocket, WrittenBytesAreSharedUntilTheWriteCompletes) {
    connectTo(PipePeer::Reads::kAtOnce);
    OBufList list = listOf("abc");
    const std::weak_ptr<ORefBuffer> block = list.front().buffer;
    ASSERT_TRUE(write(list));
    list.clear();
    ASSERT_TRUE(reports.waitForWrites(1));
    loop.call([&] { EXPECT_TRUE(block.expired()); });
    ASSERT_TRUE(peer->waitForBytes(3));
    EXPECT_EQ(peer->received(), "abc");
}

TEST_F(ConnectedSocket, ViewsOfOneListLeaveInOrder) {
    connectTo(PipePeer::Reads::kAtOnce);
    OBufList list;
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        const std::string piece = std::to_string(i) + ",";
        expected += piece;
        list.append(listOf(piece));
    }
    ASSERT_TRUE(write(list));
    ASSERT_TRUE(peer->waitForBytes(expected.size()));
    EXPECT_EQ(peer->received(), expected);
    EXPECT_EQ(reports.waitForWrites(1), true);
    EXPECT_EQ(reports.writes(), std::vector<std::int32_t>({0})) << "one write, one completion";
}

TEST_F(ConnectedSocket, WriteOfNoViewsIsRefused) {
    connectTo(PipePeer::Reads::kAtOnce);
    EXPECT_FALSE(write({}));
    loop.call([&] { EXPECT_TRUE(socket->activeWriteReqs.empty()); });
}

TEST_F(ConnectedSocket, WritesInFlightOutliveTheirSocketAndEndSilently) {
    connectTo(PipePeer::Reads::kWhenTold);
    const OBufList list = listOf(std::string(1 << 20, 'x')); // more than a pipe holds
    std::weak_ptr<ORefBuffer> block = list.front().buffer;
    std::vector<OWriteReq*> requests;
    loop.call([&] {
        for (int i = 0; i < 8; ++i) {
            ASSERT_TRUE(socket->write(list));
        }
        requests.assign(socket->activeWriteReqs.begin(), socket->activeWriteReqs.end());
        ASSERT_EQ(requests.size(), 8U);
        socket.reset();
        EXPECT_EQ(requests.back()->owner, nullptr) << "still allocated, for libuv";
        EXPECT_EQ(requests.back()->views.front().buffer, list.front().buffer);
    });
    loop.stop(); // the completions have run, and the address sanitizer finds no request left over
    EXPECT_TRUE(reports.writes().empty());
    EXPECT_EQ(block.use_count(), 1) << "only the test's own list is left";
}

TEST_F(ConnectedSocket, SocketMayBeDestroyedInItsWriteCallback) {
    connectTo(PipePeer::Reads::kAtOnce);
    auto destroyed = std::make_shared<Signal>();
    socket->setWriteCallback([this, destroyed](OBaseSocket*, const OBufList& list, std::int32_t) {
        const auto end = destroyed; // the callback goes with the socket
        socket.reset();
        EXPECT_EQ(totalLength(list), 3U);
        end->set();
    });
    ASSERT_TRUE(write(listOf("abc")));
    ASSERT_TRUE(destroyed->wait());
    EXPECT_TRUE(peer->waitForEnd());
}

TEST_F(ConnectedSocket, RefusedWriteIsRecycledWithoutACallback) {
    connectTo(PipePeer::Reads::kAtOnce);
    loop.call([&] {
        // Writable to the eye, and without anything to write to: libuv refuses at once.
        TestPipe broken(loop.loop());
        broken.init();
        streamOf(broken)->flags |= streamOf(*socket)->flags;
        Reports brokenReports;
        brokenReports.attachTo(broken);
        EXPECT_NE(uv_is_writable(streamOf(broken)), 0);
        EXPECT_FALSE(broken.write(listOf("abc")));
        EXPECT_TRUE(broken.activeWriteReqs.empty());
        ASSERT_EQ(broken.freeWriteReqs.size(), 1U);
        EXPECT_EQ(broken.freeWriteReqs.front()->inUse, 0U);
        EXPECT_TRUE(broken.freeWriteReqs.front()->views.empty());
        EXPECT_TRUE(brokenReports.writes().empty());
    });
}

} // namespace
