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
/// Any thread may call the host's operations. On return their packets have been handed to libuv in the order of the
/// calls; if the loop thread is busy for more than 50 ms, a packet follows later. They throw std::bad_alloc. Received
/// packets and both host callbacks run on the loop thread with no lock held: a callback may call any operation. The object
/// must be destroyed after the loop has ended.
class QuPCAudioMessage : public OStreamPipe, public CtrlProtocol {
public:
    explicit QuPCAudioMessage(std::shared_ptr<OUVLoop> loop);
    ~QuPCAudioMessage() override;

    using OStreamPipe::init;
    /// Takes the host's record and starts to connect; when already connected, sends the new device information. False when
    /// a callback or `context` is missing (the record is not taken), while a connect is under way (the record is taken and
    /// sent once the session is connected), and when the session is ending.
    bool init(const AudioServiceParam& param);

    /// Overwrites the start of the account id with `text`, keeps its tail, and sends it. False, without a change, when
    /// `text` is null, empty, or 256 bytes or longer.
    bool setAccountID(const char* text);

    /// Asks the service to end the projection. `sequence` counts the packets of the exported functions; it is raised when
    /// the packet is sent and must outlive the loop.
    void endProjection(std::atomic<std::uint16_t>& sequence);

    /// Asks the service to stop, and stops reporting stream errors: the disconnection is expected. While a connect is under
    /// way the request waits for it: a service that has accepted the connection would otherwise never receive it.
    void stopService(std::atomic<std::uint16_t>& sequence);

    /// The service process has ended: drops undelivered notifications.
    void serviceHasEnded();

    /// Sends the six identity texts.
    void _setKORUInfoNotify();

    std::uint32_t getPlayerState() const { return mPlayerState->load(); }

    /// Moves the player's state to `place`, where it can be read without touching the session; it must outlive the session.
    /// Before anything is received.
    void keepPlayerStateIn(std::atomic<std::uint32_t>& place);

    Connection connection() const { return mConnection.load(); }

    /// See SourceName::get.
    const char* getPhoneName() { return phoneName.get(); }

    /// Drops the packet, with a line in the log, while too many bytes are unsent.
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

    /// Each queues one packet after all earlier ones; null when too many wait. Under mMutex, which decides the order; the
    /// caller then finishes the call without the lock.
    LoopEntry::CallPtr queueNotify(OBufList payload);
    LoopEntry::CallPtr queueNumbered(std::uint16_t cmdType, std::atomic<std::uint16_t>& sequence,
                                     OBufList payload, std::size_t most);
    static void logKORUInfo();
    /// Logs when the packet was not queued. Not under mMutex.
    void finishSend(const LoopEntry::CallPtr& queued);
    /// Each sends one packet with the next number of its series. Where libuv may be entered, so that numbers are sent in
    /// order. A packet that is lost to an allocation failure uses up no number.
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
        Connection::Idle}; ///< read without the lock where no other member is needed
    std::atomic<std::uint16_t>* mHeldStop = nullptr; ///< series of the stop that waits for the connect
};
