#pragma once

#include "SonviaPCAudioDll.h"
#include "protocol/ctrl_protocol.h"
#include "session/connection.h"
#include "session/source_name.h"
#include "transport/mutex.h"
#include "transport/stream_pipe.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace protocol {
class EntryView;
}

/// The one connection to the audio service: the pipe and the protocol in one object. Owns the whole conversation:
/// connects once, sends the device information, the account id and the host's requests, keeps what the service reports
/// and hands its events to the host's callbacks.
///
/// The host's operations may be called from any thread. What they send has been handed to libuv when they return, in the
/// order of the calls; only a loop thread that has been busy for 50 ms lets a send follow later. They throw
/// std::bad_alloc when memory runs out. Everything that arrives, and both host callbacks, run on the loop thread with no
/// lock held, so a callback may call back into any of them. The object must be destroyed after the loop has ended.
class QuPCAudioMessage : public OStreamPipe, public CtrlProtocol {
public:
    explicit QuPCAudioMessage(std::shared_ptr<OUVLoop> loop);
    ~QuPCAudioMessage() override;

    using OStreamPipe::init;
    /// Takes the host's record and starts to connect; when connected already, sends the new device
    /// information. False when a callback or `context` is missing (nothing is taken then), a connect is still
    /// under way (the record is taken, and is the one that is sent when the connection is there) or the session is ending.
    bool init(const AudioServiceParam& param);

    /// Writes `text` over the start of the account id, whose tail stays, and sends it. False for a text that
    /// is empty, null, or of 256 bytes or more; nothing changes then.
    bool setAccountID(const char* text);

    /// Asks the service to end the projection. `sequence` counts the exported functions' own packets, and is read and
    /// raised when the packet is made; it must outlive the loop.
    void endProjection(std::atomic<std::uint16_t>& sequence);

    /// Silences the errors that the coming disconnection raises, for good, and asks the service to stop. While a connect is
    /// under way the request waits for it: a service that has taken the connection would otherwise never hear it.
    void stopService(std::atomic<std::uint16_t>& sequence);

    /// Nobody is left to talk to: notifications that have arrived and were not delivered are dropped.
    void noteServiceGone();

    /// Sends the six identity texts.
    void _setKORUInfoNotify();

    std::uint32_t getPlayerState() const { return mPlayerState->load(); }

    /// Moves the player's state to `place`, where it can be read without touching the session; it must outlive the session.
    /// Before anything is received.
    void keepPlayerStateIn(std::atomic<std::uint32_t>& place);

    Connection connection() const { return mConnection.load(); }

    /// See SourceName::lend.
    const char* lendPhoneName() { return phoneName.lend(); }

    /// Refuses, with a line in the log, what comes while too much is unsent.
    bool write(const OBufList& list) override;
    void onRead(OBufList list, std::int32_t status) override;
    void onError(std::int32_t code) override;
    void onConnect(uv_connect_t* req, std::int32_t status) override;
    void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length) override;

private:
    struct NotifyTable;

    void dispatchNotify(const std::uint8_t* payload, std::uint32_t length);
    void handlePlayerState(const protocol::EntryView& entry);
    void handleFirstPCM(const protocol::EntryView& entry);
    void handleBufferStart(const protocol::EntryView& entry);
    void handleBufferEnd(const protocol::EntryView& entry);
    void handlePhoneName(const protocol::EntryView& entry);
    void handleChangeMode(const protocol::EntryView& entry);

    /// The only place where the connection's state changes. Under mMutex.
    void change(ConnectionEvent event);
    bool beginConnect();
    void connectionIsReadable();
    void connectFailed(std::int32_t status);

    /// Each queues one packet behind everything queued before it; null when so many are waiting. Under mMutex, which
    /// decides the order; the caller finishes the call after that, without the lock.
    LoopEntry::CallPtr queueNotify(OBufList payload);
    LoopEntry::CallPtr queueNumbered(std::uint16_t cmdType, std::atomic<std::uint16_t>& sequence,
                                     OBufList payload, std::size_t most);
    static void logKORUInfo();
    /// Says so in the log when the packet was not queued. Not under mMutex.
    void finishSend(const LoopEntry::CallPtr& queued);
    /// Each sends one packet with the next number of its series. Where libuv may be entered, so that numbers leave in
    /// their order; a packet that no memory is left for costs no number.
    void sendNotify(OBufList payload);
    void sendNumbered(std::uint16_t cmdType, std::atomic<std::uint16_t>& sequence, OBufList payload);

    using HostCallback = void (*)(int, int);

    void reportEvent(int event, int value) { callHost(mOnEvent.load(), event, value); }

    void reportError(int code, int value) { callHost(mOnError.load(), code, value); }

    void callHost(HostCallback callback, int first, int second);

    std::atomic<std::uint32_t> playerState{SONVIA_STATE_UNKNOWN};
    std::atomic<std::uint32_t>* mPlayerState = &playerState; ///< where the state is kept
    SourceName phoneName;
    std::uint32_t notifySequence = 0; ///< used where libuv may be entered
    /// Guards all below, and decides the order of sends; never held across a host callback or a libuv call.
    OMutex mMutex;
    AudioServiceParam params = {};
    std::atomic<HostCallback> mOnEvent{nullptr}; ///< of params, changed with them; read without the lock
    std::atomic<HostCallback> mOnError{nullptr}; ///< likewise
    std::atomic<Connection> mConnection{
        Connection::Idle};                           ///< read without the lock where nothing else matters
    std::atomic<std::uint16_t>* mHeldStop = nullptr; ///< series of the stop that waits for the connect
};
