// The accepting side of a pipe.

#include "support/transport/stream_pipe_fixture.h"
#include "support/wait.h"

using namespace support;

namespace {

/// A listening pipe on the loop of the test; an OStreamPipe accepts its connections.
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
    ASSERT_TRUE(eventually("the listener accepts the client", [&] {
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
