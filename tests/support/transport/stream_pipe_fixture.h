#pragma once

#include "support/transport/transport_support.h"

#include "support/pipe_peer.h"

#include <gtest/gtest.h>

#include <memory>

namespace support {

/// A pipe, its loop, and the peer that it connects to.
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

} // namespace support
