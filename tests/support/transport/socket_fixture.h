#pragma once

#include "support/transport/transport_support.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <utility>

namespace support {

/// A pipe whose libuv handle is never registered: what libuv would call is called by the test.
class SocketOperations : public testing::Test {
protected:
    explicit SocketOperations(std::shared_ptr<OUVLoop> loop = nullptr) : socket(std::move(loop)) {
        mStream.data = static_cast<OBaseHandle*>(&socket);
    }

    uv_buf_t allocate(std::size_t size) {
        uv_buf_t buf = {};
        TestPipe::allocCb(reinterpret_cast<uv_handle_t*>(&mStream), size, &buf);
        return buf;
    }

    void complete(ssize_t nread, const uv_buf_t& buf) {
        TestPipe::readCb(reinterpret_cast<uv_stream_t*>(&mStream), nread, &buf);
    }

    TestPipe socket;
    Reports reports;
    uv_pipe_t mStream = {};
};

} // namespace support
