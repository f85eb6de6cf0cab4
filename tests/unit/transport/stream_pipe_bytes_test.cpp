// What a connected pipe carries.

#include "support/transport/stream_pipe_fixture.h"

#include <string>
#include <thread>
#include <vector>

using namespace support;

namespace {

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

TEST_F(StreamPipe, WriteAfterThePeerDisconnectedIsRefused) {
    connectToPeer();
    peer->disconnect();
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    bool accepted = false;
    loop.call([&] { accepted = pipe->write(listOf("abc")); });
    EXPECT_FALSE(accepted);
    loop.call([this] { EXPECT_TRUE(pipe->activeWriteReqs.empty()); });
}

} // namespace
