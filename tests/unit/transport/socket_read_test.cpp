// What a socket lends libuv to read into, and what becomes of a read.

#include "transport/socket.h"

#include "support/transport/socket_fixture.h"
#include "support/transport/stream_pipe_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace support;

namespace {

TEST_F(SocketOperations, ReadBufferIsAFreshBlockOfTheSuggestedSize) {
    const uv_buf_t first = allocate(1000);
    const uv_buf_t second = allocate(65536);
    EXPECT_EQ(first.len, 1000U);
    EXPECT_EQ(second.len, 65536U);
    ASSERT_EQ(socket.pendingReads.size(), 2U);
    EXPECT_EQ(reinterpret_cast<char*>(socket.pendingReads.front().data()), first.base);
    EXPECT_EQ(socket.pendingReads.front().buffer->capacity, 1000U);
    EXPECT_EQ(socket.pendingReads.front().offset, 0U);
    EXPECT_EQ(socket.pendingReads.back().length, 65536U);
    EXPECT_NE(first.base, second.base);
}

TEST_F(SocketOperations, ReadBufferIsNoLargerThanABlockHoweverMuchIsAnnounced) {
    EXPECT_EQ(allocate(65537).len, 65536U);
    EXPECT_EQ(allocate(4294967295U).len, 65536U);
    EXPECT_EQ(socket.pendingReads.back().buffer->capacity, 65536U);
}

TEST_F(SocketOperations, BufferOfAReadOfZeroBytesIsReused) {
    OBufList got;
    socket.setReadCallback([&](OBaseSocket*, OBufList list, std::int32_t) { got = std::move(list); });
    const uv_buf_t first = allocate(100);
    complete(0, first);
    const uv_buf_t shorter = allocate(60);
    EXPECT_EQ(shorter.base, first.base);
    EXPECT_EQ(shorter.len, 60U);
    complete(0, shorter);
    const uv_buf_t longer = allocate(200);
    EXPECT_EQ(longer.len, 200U);
    EXPECT_EQ(socket.pendingReads.size(), 1U);
    complete(200, longer);
    EXPECT_NE(allocate(200).base, longer.base) << "a filled one is its receiver's";
    EXPECT_EQ(socket.pendingReads.size(), 1U);
}

TEST_F(SocketOperations, ReadTakesThePendingBufferThatWasFilled) {
    OBufList got;
    socket.setReadCallback([&](OBaseSocket*, OBufList list, std::int32_t status) {
        EXPECT_EQ(status, 0);
        got = std::move(list);
    });
    const uv_buf_t first = allocate(100);
    const uv_buf_t second = allocate(100);
    const uv_buf_t third = allocate(100);
    second.base[0] = 'x';
    complete(7, second);
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got.front().length, 7U);
    EXPECT_EQ(reinterpret_cast<char*>(got.front().data()), second.base) << "handed up without a copy";
    ASSERT_EQ(socket.pendingReads.size(), 2U);
    EXPECT_EQ(reinterpret_cast<char*>(socket.pendingReads.front().data()), first.base);
    EXPECT_EQ(reinterpret_cast<char*>(socket.pendingReads.back().data()), third.base);
}

TEST_F(SocketOperations, ReadThatMatchesNoPendingBufferGivesAFreshBlockOfItsLength) {
    OBufList got;
    socket.setReadCallback([&](OBaseSocket*, OBufList list, std::int32_t) { got = std::move(list); });
    allocate(100);
    char elsewhere[16] = {};
    complete(9, uv_buf_init(elsewhere, sizeof elsewhere));
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got.front().length, 9U);
    EXPECT_EQ(got.front().buffer->capacity, 9U);
    EXPECT_NE(reinterpret_cast<char*>(got.front().data()), elsewhere);
    EXPECT_EQ(socket.pendingReads.size(), 1U);
}

TEST_F(SocketOperations, ReadOfZeroBytesReportsEventThreeWithStatusZero) {
    reports.attachTo(socket);
    complete(0, allocate(100));
    EXPECT_EQ(reports.events(), std::vector<Reports::Event>({{3, 0}}));
    EXPECT_TRUE(reports.bytes().empty());
}

TEST_F(SocketOperations, FailedReadLeavesItsBufferPending) {
    reports.attachTo(socket);
    complete(UV_ECONNRESET, allocate(100));
    EXPECT_EQ(reports.events(), std::vector<Reports::Event>({{3, UV_ECONNRESET}}));
    EXPECT_EQ(socket.pendingReads.size(), 1U);
}

TEST_F(SocketOperations, ReadWithoutAnOwnerIsDropped) {
    reports.attachTo(socket);
    const uv_buf_t buf = allocate(100);
    mStream.data = nullptr;
    complete(5, buf);
    complete(UV_EOF, buf);
    EXPECT_TRUE(reports.events().empty());
    EXPECT_TRUE(reports.bytes().empty());
}

/// A pipe that reads, on a running loop.
class PausedReading : public StreamPipe {
protected:
    /// As libuv does when it finds nothing to read. Loop thread.
    void readNothing() const {
        uv_buf_t buf = {};
        TestPipe::allocCb(pipe->handle(), 100, &buf);
        TestPipe::readCb(reinterpret_cast<uv_stream_t*>(pipe->handle()), 0, &buf);
    }
};

TEST_F(PausedReading, ReadingPausesForOneTurnOfTheLoopAfterAReadOfNothing) {
    connectToPeer();
    loop.call([&] {
        readNothing();
        EXPECT_EQ(uv_is_active(pipe->handle()), 0);
    });
    peer->send("hello");
    EXPECT_TRUE(reports.waitForBytes(5));
    EXPECT_EQ(reports.bytes(), "hello");
}

TEST_F(PausedReading, OwnerThatStopsReadingInThePauseIsNotReadTo) {
    connectToPeer();
    loop.call([&] {
        readNothing();
        EXPECT_TRUE(pipe->readStop());
    });
    loop.call([&] { EXPECT_EQ(uv_is_active(pipe->handle()), 0); });
}

TEST_F(PausedReading, PipeThatGoesInThePauseIsNotReadFrom) {
    connectToPeer();
    loop.call([&] {
        readNothing();
        pipe.reset();
    });
    loop.call([] {});
    EXPECT_EQ(reports.bytes(), "");
}

} // namespace
