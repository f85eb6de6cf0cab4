// Frames between processes, written by the system's own calls: libuv, the other end of most tests, writes a frame at
// once, and no service has to.

#include "support/transport/stream_pipe_fixture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <winsock2.h>

using namespace support;

namespace {

class SplitFrame : public StreamPipe {
protected:
    SplitFrame()
        : mServer(CreateNamedPipeA((prefix + "p").c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 1 << 20,
                                   1 << 20, 0, nullptr)) {
        makePipe();
        loop.run();
        connect();
        loop.call([this] { EXPECT_TRUE(pipe->readStart()); });
    }

    ~SplitFrame() override {
        loop.stop();
        CloseHandle(mServer);
    }

    void send(const std::string& bytes) const {
        DWORD written = 0;
        EXPECT_NE(WriteFile(mServer, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr), 0);
        EXPECT_EQ(written, bytes.size());
    }

    /// What precedes the payload of a frame: flags (1: there is a payload, 2: a socket is passed along), 0, its
    /// length, 0.
    static std::string frameHeader(std::uint32_t length, std::uint32_t flags = 1) {
        const std::array<std::uint32_t, 4> fields = {flags, 0, length, 0};
        std::string bytes(sizeof fields, '\0');
        std::memcpy(bytes.data(), fields.data(), sizeof fields);
        return bytes;
    }

    /// What follows the header of a frame that passes a socket along: the socket's description, and an error.
    static std::string socketRecord() { return std::string(sizeof(WSAPROTOCOL_INFOW) + sizeof(DWORD), '\0'); }

    /// The first event was the connection.
    std::size_t zeroReads() const { return reports.events().size() - 1; }

private:
    HANDLE mServer;
};

} // namespace

TEST_F(SplitFrame, PayloadThatArrivesAfterItsHeaderIsReadAndCostsOneEmptyRead) {
    for (std::size_t frame = 1; frame <= 20; ++frame) {
        send(frameHeader(5));
        ASSERT_TRUE(reports.waitForEvents(1 + frame));
        for (int turn = 0; turn < 20; ++turn) { // the loop sees to other things meanwhile
            loop.call([] {});
        }
        EXPECT_EQ(zeroReads(), frame);
        send("hello");
        ASSERT_TRUE(reports.waitForBytes(5 * frame));
    }
    for (const auto& event : reports.events()) {
        EXPECT_EQ(event.second, 0);
    }
}

TEST_F(SplitFrame, FrameThatAnnouncesGigabytesAndStaysAwayHoldsOneBlockAndNoThread) {
    send(frameHeader(4294967295U));
    ASSERT_TRUE(reports.waitForEvents(2));
    for (int byte = 1; byte <= 50; ++byte) {
        send("x");
        ASSERT_TRUE(reports.waitForBytes(static_cast<std::size_t>(byte)));
        loop.call([this] {
            ASSERT_LE(pipe->pendingReads.size(), 1u);
            for (const OBufView& view : pipe->pendingReads) {
                EXPECT_EQ(view.buffer->capacity, 65536u);
            }
        });
    }
    EXPECT_LE(zeroReads(), 51u);
}

TEST_F(SplitFrame, OwnerThatStopsReadingInThePauseGetsNothingMore) {
    Signal stopped;
    loop.call([&] {
        pipe->setEventCallback([&](OBaseSocket* socket, std::int32_t, std::int32_t) {
            socket->readStop();
            stopped.set();
        });
    });
    send(frameHeader(5));
    ASSERT_TRUE(stopped.wait());
    loop.call([] {}); // what would start it again came before this
    send("hello");
    for (int turn = 0; turn < 1000; ++turn) {
        loop.call([] {});
    }
    EXPECT_EQ(reports.bytes(), "");
    loop.call([this] {
        reports.attachTo(*pipe);
        EXPECT_TRUE(pipe->readStart());
    });
    ASSERT_TRUE(reports.waitForBytes(5));
}

// libuv waits inside a read for the rest of a header, whoever sends it.
TEST_F(SplitFrame, HalfAHeaderIsGivenUpWhenTheLoopIsToStop) {
    send(frameHeader(5).substr(0, 8));
    EXPECT_EQ(loop->stop(), 0);
    EXPECT_TRUE(eventually("the loop stops", [this] {
        pipe->interruptReading();
        return loop->waitForStop(std::chrono::milliseconds(20));
    }));
    loop.join();
}

// libuv keeps them until the pipe is closed, and calls nobody.
TEST_F(SplitFrame, SocketsPassedAlongAreOneErrorAndNothingIsReadFromThenOn) {
    constexpr std::size_t kFrames = 1000;
    std::string frames;
    for (std::size_t frame = 0; frame < kFrames; ++frame) {
        frames += frameHeader(0, 2) + socketRecord();
    }
    send(frames);
    ASSERT_TRUE(reports.waitForEvents(2));
    send(frameHeader(5) + "hello");
    for (int turn = 0; turn < 100; ++turn) {
        loop.call([] {});
    }
    EXPECT_EQ(reports.events(), (std::vector<Reports::Event>{{OBaseSocket::kConnected, 0},
                                                             {OBaseSocket::kReadError, UV_ECONNABORTED}}));
    EXPECT_EQ(reports.bytes(), "");
    loop.call([this] { EXPECT_LE(uv_pipe_pending_count(pipe->pipe.get()), 16); });
}

TEST_F(SplitFrame, BytesThatComeWithASocketAreDropped) {
    send(frameHeader(5) + "hello");
    ASSERT_TRUE(reports.waitForBytes(5));
    send(frameHeader(5, 3) + socketRecord() + "there");
    ASSERT_TRUE(reports.waitForEvents(2));
    EXPECT_EQ(reports.events().back(), (Reports::Event{OBaseSocket::kReadError, UV_ECONNABORTED}));
    EXPECT_EQ(reports.bytes(), "hello");
}
