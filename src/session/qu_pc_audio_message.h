#pragma once

#include "SonviaPCAudioDll.h"
#include "protocol/ctrl_protocol.h"
#include "session/source_name.h"
#include "transport/stream_pipe.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

/// The one connection to the audio service: the pipe and the protocol in one object. Connects once, sends the
/// device information and the account id, keeps what the service reports and hands its events to the host's
/// callbacks.
///
/// The operations below may be called from any thread; sends are moved to the loop thread in the order of the
/// calls. Everything that arrives, and both host callbacks, run on the loop thread with no lock held, so a
/// callback may call back into any of them. The object must be destroyed after the loop has ended.
class QuPCAudioMessage : public OStreamPipe, public CtrlProtocol {
public:
    explicit QuPCAudioMessage(std::shared_ptr<OUVLoop> loop);
    ~QuPCAudioMessage() override;

    using OStreamPipe::init;
    /// Takes the host's record and starts to connect; when connected already, sends the new device
    /// information. False when a callback or `context` is missing (nothing is taken then), a connect is still
    /// under way or the session is ending.
    bool init(const AudioServiceParam& param);

    /// A connect has been started and no loop has run since that could complete it.
    bool connectWaitsForLoop() const {
        return connecting.load() && mLoop->runState.load() == OUVLoop::kNotRunning;
    }

    /// The first half of init: takes the host's record. False when a callback or `context` is missing.
    bool take(const AudioServiceParam& param);

    /// Writes `text` over the start of the account id, whose tail stays, and sends it. False for a text that
    /// is empty, null, or of 256 bytes or more; nothing changes then.
    bool setAccountID(const char* text);

    /// Sends the six identity texts.
    void _setKORUInfoNotify();

    /// Sends one packet: on the loop thread, or at once when no thread runs the loop.
    void send(std::uint16_t cmdType, std::uint16_t seq, OBufList payload);

    /// Nobody is left to read: what send has queued and the loop thread has not reached yet is not sent any more, and
    /// what has come from the service and not been told is not told any more.
    void noteServiceGone() { mServiceGone = true; }

    /// Silences the errors that the coming disconnection raises, for good.
    void endSession();

    std::uint32_t getPlayerState() const { return playerState.load(); }

    /// See SourceName::lend.
    const char* lendPhoneName() { return phoneName.lend(); }

    void onRead(OBufList list, std::int32_t status) override;
    void onError(std::int32_t code) override;
    void onConnect(uv_connect_t* req, std::int32_t status) override;
    void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length) override;

private:
    using NotifyHandler = void (QuPCAudioMessage::*)(const std::uint8_t* payload, std::uint32_t length);
    static NotifyHandler notifyHandler(const std::string& key);

    void dispatchNotify(const std::uint8_t* payload, std::uint32_t length);
    void handlePlayerState(const std::uint8_t* payload, std::uint32_t length);
    void handleFirstPCM(const std::uint8_t* payload, std::uint32_t length);
    void handleBufferStart(const std::uint8_t* payload, std::uint32_t length);
    void handleBufferEnd(const std::uint8_t* payload, std::uint32_t length);
    void handlePhoneName(const std::uint8_t* payload, std::uint32_t length);
    void handleChangeMode(const std::uint8_t* payload, std::uint32_t length);

    void reportEvent(int event, int value);
    void reportError(int code, int value);
    AudioServiceParam currentParams();

    std::atomic<std::uint32_t> playerState{SONVIA_STATE_UNKNOWN};
    SourceName phoneName;
    std::mutex mParamsMutex; ///< guards params; never held across a host callback or a libuv call
    AudioServiceParam params = {};
    std::atomic<bool> connected{false};
    std::atomic<std::uint32_t> notifySequence{0};
    std::atomic<bool> mEnding{false};
    std::atomic<bool> mServiceGone{false};
    /// Sends the stop that came while a connect was under way: a service that has taken the connection would otherwise
    /// never hear of it. Where libuv may be entered.
    std::function<void()> mHeldStop;
};
