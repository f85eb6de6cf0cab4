// Handles put together by hand: without a service process, and with whatever parts a test wants.
#pragma once

#include "api/audio_service_handle.h"
#include "api/live_handles.h"
#include "oracle/bytes.h"
#include "support/session/session_support.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <utility>

namespace support {

inline constexpr const char* kApiTag = "SonviaPCAudioDll";

/// A record among the live handles, as initSonviaAudioService leaves it.
class ListedRecord {
public:
    explicit ListedRecord(std::unique_ptr<AudioServiceHandle> record = std::make_unique<AudioServiceHandle>())
        : mRecord(record.get()), handle(liveHandles().add(entryOf(std::move(record)))) {}

    /// Removes it without a shut-down when no test has released it.
    ~ListedRecord() { const HandleRelease release(liveHandles(), handle); }

    ListedRecord(const ListedRecord&) = delete;
    ListedRecord& operator=(const ListedRecord&) = delete;

    /// Until the release.
    AudioServiceHandle* operator->() const { return mRecord; }

    AudioServiceHandle& operator*() const { return *mRecord; }

private:
    static std::unique_ptr<HandleEntry> entryOf(std::unique_ptr<AudioServiceHandle> record) {
        auto one = std::make_unique<HandleEntry>();
        one->record = std::move(record);
        return one;
    }

    AudioServiceHandle* mRecord;

public:
    AudioServiceHandle* const handle; ///< what the host holds
};

/// A handle whose session writes to `stream`. No thread runs its loop until setParam starts it.
struct DirectHandle {
    DirectHandle();

    /// As if the service had answered.
    void connected() { record->session->onConnect(nullptr, 0); }

    void receive(const oracle::Bytes& payload);

    RecordingSocket stream;
    ListedRecord record{withSession()};
    AudioServiceHandle* const handle = record.handle;

private:
    static std::unique_ptr<AudioServiceHandle> withSession();
};

/// A service process that ends when the test says so.
class FakeProcess : public platform::Process {
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

} // namespace support
