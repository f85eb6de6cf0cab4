// A peer that passes descriptors along with its bytes, by the system's own calls.

#include "support/transport/stream_pipe_fixture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace support;

namespace {

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class Transfers : public StreamPipe {
protected:
    Transfers() : mListener(socket(AF_UNIX, SOCK_STREAM, 0)) {
        const std::string name = prefix + "p";
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(mListener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(mListener, 1), 0);
        makePipe();
        loop.run();
        connect();
        mPeer = accept(mListener, nullptr, nullptr);
        loop.call([this] { EXPECT_TRUE(pipe->readStart()); });
    }

    ~Transfers() override {
        loop.stop();
        close(mPeer);
        close(mListener);
        unlink((prefix + "p").c_str());
    }

    /// Sends `bytes` together with `descriptors` copies of the peer's socket.
    void send(std::string bytes, std::size_t descriptors) const {
        std::array<int, 64> passed = {};
        passed.fill(mPeer);
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof passed)> control = {};
        iovec data = {bytes.data(), bytes.size()};
        msghdr message = {};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
        cmsghdr* rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        std::memcpy(CMSG_DATA(rights), passed.data(), descriptors * sizeof(int));
        EXPECT_EQ(sendmsg(mPeer, &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    void sendBytes(const std::string& bytes) const {
        EXPECT_EQ(::send(mPeer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

private:
    int mListener;
    int mPeer = -1;
};

} // namespace

TEST_F(Transfers, DescriptorsAreOneErrorAndNothingIsReadFromThenOn) {
    sendBytes("before");
    ASSERT_TRUE(reports.waitForBytes(6));
    send("with them", 1);
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    for (int message = 0; message < 20; ++message) {
        send("more", 10);
        sendBytes("and more");
        loop.call([] {});
    }
    EXPECT_EQ(reports.events(), (std::vector<Reports::Event>{{OBaseSocket::kConnected, 0},
                                                             {OBaseSocket::kReadError, UV_ECONNABORTED}}));
    EXPECT_EQ(reports.bytes(), "before");
}

TEST_F(Transfers, DescriptorsAreClosedWithThePipe) {
    const std::size_t before = openDescriptors();
    send("with them", 20);
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kReadError));
    EXPECT_EQ(openDescriptors(), before + 20) << "libuv holds them";
    loop.call([this] { pipe->close(); });
    ASSERT_TRUE(reports.waitForEvent(OBaseSocket::kClosed));
    EXPECT_EQ(openDescriptors(), before - 1) << "the pipe's own end is closed too";
}
