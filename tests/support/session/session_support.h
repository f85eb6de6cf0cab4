// A host for the session to talk to, and sessions in the forms that the tests need.
#pragma once

#include "SonviaPCAudioDll.h"
#include "oracle/packets.h"
#include "protocol/ctrl_protocol.h"
#include "session/qu_pc_audio_message.h"
#include "support/pipe_peer.h"
#include "support/protocol/protocol_support.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace support {

inline constexpr const char* kSessionTag = "Sonvia_PCAudioMessage";

/// What the host's callbacks were called with. The callbacks are plain functions, so there is one host at a time:
/// make one in each test.
class Host {
public:
    using Call = std::pair<int, int>;

    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// A record with this host's callbacks and six texts that differ in each field.
    static AudioServiceParam record();
    static void onEvent(int event, int value);
    static void onError(int code, int value);

    static std::vector<Call> events();
    static std::vector<Call> errors();
    static testing::AssertionResult waitForEvents(std::size_t count);
    static testing::AssertionResult waitForErrors(std::size_t count);
    /// Are run inside the callbacks, after the call has been noted.
    static void whenEvent(std::function<void(int event, int value)> hook);
    static void whenError(std::function<void(int code, int value)> hook);
};

/// A series of the exported functions' numbers that goes on with `next`.
std::atomic<std::uint16_t>& seriesFrom(std::uint16_t next);

void setText(char (&field)[SONVIA_TEXT_SIZE], const std::string& text);
/// The entries inside the one "KORUInfo" of a payload; empty when the payload is anything else.
std::vector<std::pair<std::string, std::string>> koruInfoOf(const oracle::Bytes& payload);
/// The account id of a payload with that one entry; "<none>" for any other.
std::string accountOf(const oracle::Bytes& payload);
oracle::Bytes notify(const oracle::Bytes& payload);

/// A stream that says "written" in the log at each write: for the order of lines and writes.
struct LoggingSocket : RecordingSocket {
    bool write(const OBufList& list) override;
};

/// A session without a pipe: what it sends is kept, what it receives the test hands over. No loop runs, so all
/// happens on the test's thread, inside its calls.
struct DirectSession {
    DirectSession() { session.setStream(&stream); }

    /// As if libuv read from it.
    struct Session : QuPCAudioMessage {
        using QuPCAudioMessage::QuPCAudioMessage;

        bool connect(const std::string& name) override { return connects || QuPCAudioMessage::connect(name); }

        bool readStart() override {
            if (whenReadStart) {
                whenReadStart();
            }
            return readable;
        }

        bool readStop() override {
            ++readStops;
            return true;
        }

        bool connects = false; ///< a connect is accepted and never completes
        bool readable = true;
        int readStops = 0;
        std::function<void()> whenReadStart;
    };

    void receive(const oracle::Bytes& payload, std::uint16_t cmdType = 34);

    RecordingSocket stream;
    std::shared_ptr<OUVLoop> loop = std::make_shared<OUVLoop>();
    Session session{loop};
};

/// A session on a loop thread and a pipe name of its own.
class PipeSession {
public:
    PipeSession();
    ~PipeSession();
    PipeSession(const PipeSession&) = delete;
    PipeSession& operator=(const PipeSession&) = delete;

    /// The service opens its pipe.
    PipePeer& listen(PipePeer::Reads reads = PipePeer::Reads::kAtOnce);
    void runLoop();
    /// Keeps the loop thread inside a task until the promise is set: no connect completes meanwhile.
    std::shared_ptr<std::promise<void>> holdLoop();
    /// Waits for at least `count` packets and gives all there are. Fewer fail the test.
    std::vector<oracle::Packet> waitForPackets(std::size_t count);

    void sendToSession(const oracle::Bytes& bytes) { peer->send(oracle::text(bytes)); }

    testing::AssertionResult waitForStreamErrors(std::size_t count) const;
    /// Until so many connects have completed.
    testing::AssertionResult waitForConnects(std::size_t count) const;

    struct Observed : QuPCAudioMessage {
        using QuPCAudioMessage::QuPCAudioMessage;
        void onError(std::int32_t code) override;
        void onConnect(uv_connect_t* req, std::int32_t status) override;
        bool write(const OBufList& list) override;
        std::atomic<int> streamErrors{0};
        std::atomic<int> connects{0};
        std::atomic<int> refusedWrites{0};
    };

    std::string fullName;
    std::unique_ptr<PipePeer> peer;
    std::shared_ptr<OUVLoop> loop = std::make_shared<OUVLoop>();
    std::unique_ptr<Observed> session = std::make_unique<Observed>(loop);

private:
    std::thread mThread;
};

} // namespace support
