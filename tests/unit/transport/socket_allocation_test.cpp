// Memory that runs out in the middle of reading.

#include "support/counted_malloc.h"
#include "support/transport/socket_fixture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>

using namespace support;

namespace {

class ReadWithoutMemory : public SocketOperations {
protected:
    ReadWithoutMemory() : SocketOperations(std::make_shared<OUVLoop>()) {
        socket.setReadCallback(
            [this](OBaseSocket*, const OBufList& list, std::int32_t) { bytesRead += totalLength(list); });
    }

    /// Provides a block and reads so many bytes into it, while allocation number `failing` fails; returns how
    /// many requests there were.
    int read(std::size_t count, int failing) {
        CountedMalloc counted(failing);
        const uv_buf_t buf = allocate(100);
        given = buf.len;
        const auto result = buf.len == 0 ? static_cast<ssize_t>(UV_ENOBUFS) : static_cast<ssize_t>(count);
        complete(result, buf);
        return counted.stop();
    }

    std::uint64_t bytesRead = 0;
    std::size_t given = 0;
};

} // namespace

TEST_F(ReadWithoutMemory, WhicheverRequestIsRefusedNothingIsThrownAndTheNextReadIsWhole) {
    int refusals = 0;
    for (int failing = 1; read(7, failing) >= failing; ++failing) {
        EXPECT_TRUE(given == 100 || given == 0);
        refusals += given == 0 ? 1 : 0;
        const std::size_t before = bytesRead;
        read(7, 0);
        EXPECT_EQ(given, 100U);
        EXPECT_EQ(bytesRead, before + 7);
    }
    EXPECT_GE(refusals, 1);
}

TEST_F(ReadWithoutMemory, ReadOfNothingLeavesTheBlockForTheNextOneWhicheverRequestIsRefused) {
    for (int failing = 1; read(0, failing) >= failing; ++failing) {
        read(7, 0);
        EXPECT_EQ(given, 100U);
        EXPECT_LE(socket.pendingReads.size(), 1U);
    }
    EXPECT_GT(bytesRead, 0U);
}
