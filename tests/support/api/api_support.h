// Handles put together by hand: without a service process, and with whatever parts a test wants.
#pragma once

#include "api/audio_service_handle.h"
#include "support/session/session_support.h"

#include <atomic>
#include <chrono>
#include <memory>

/// A handle whose session writes to `stream`. No thread runs its loop until setParam starts it.
struct DirectHandle {
    DirectHandle();

    /// As if the service had answered.
    void connected() { handle->session->onConnect(nullptr, 0); }

    void receive(const wire::Bytes& payload);

    RecordingSocket stream;
    std::unique_ptr<AudioServiceHandle> handle = std::make_unique<AudioServiceHandle>();
};

/// A service process that ends when the test says so.
class FakeProcess : public platform::ServiceProcess {
public:
    struct Seen {
        int waits = 0;
        std::chrono::milliseconds limit{0};
        std::size_t packetsBefore = 0; ///< written before the wait
        bool released = false;
        int forced = 0;
    };

    FakeProcess(bool ends, Seen& seen, const RecordingSocket* stream)
        : mEnds(ends), mSeen(seen), mStream(stream) {}

    ~FakeProcess() override { mSeen.released = true; }

    bool waitForEnd(std::chrono::milliseconds limit) override;

    void endByForce() override {
        ++mSeen.forced;
        mEnds = true;
    }

private:
    bool mEnds;
    Seen& mSeen;
    const RecordingSocket* mStream;
};
