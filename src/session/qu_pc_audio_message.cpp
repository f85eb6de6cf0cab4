#include "session/qu_pc_audio_message.h"

#include "log/init_log.h"
#include "log/write_log.h"
#include "protocol/command_names.h"
#include "protocol/key_value.h"

#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

namespace {

constexpr const char* kServicePeerName = "QuPCAudio";

/// Bytes of packets that the service has not read: thousands of them, from a service that does not read at all.
constexpr std::size_t kMostUnsent = 4UL * 1024 * 1024;

/// Packets that wait until libuv may be entered: for a peer that keeps the loop thread inside it.
constexpr std::size_t kMostWaiting = 1000;

/// A text of the host's record; the host need not have terminated it.
std::string_view textOf(const char (&field)[SONVIA_TEXT_SIZE]) {
    return {field, strnlen(field, sizeof field)};
}

OBufList accountPayload(const AudioServiceParam& params) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addString(protocol::kKeyAccountID, textOf(params.accountID)).finish(payload);
    return payload;
}

OBufList koruInfoPayload(const AudioServiceParam& params) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf()
        .addNested(protocol::kKeyKORUInfo,
                   [&params](CtrlProtocol::KeyValueBuf& info) {
                       info.addString(protocol::kKeyAccountID, textOf(params.accountID))
                           .addString(protocol::kKeyBluetoothMac, textOf(params.bluetoothMac))
                           .addString(protocol::kKeyDeviceID, textOf(params.deviceID))
                           .addString(protocol::kKeyModel, textOf(params.model))
                           .addString(protocol::kKeySn, textOf(params.sn))
                           .addString(protocol::kKeyPcName, textOf(params.pcName));
                   })
        .finish(payload);
    return payload;
}

OBufList numberPayload(std::string_view key, std::uint32_t value) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addInt(key, value).finish(payload);
    return payload;
}

OBufList stopPayload() {
    return numberPayload(protocol::kKeyStopSonviaAudioService, kNotifyStopService);
}

void logKORUInfo() {
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]send notify koru info.",
             "QuPCAudioMessage::_setKORUInfoNotify", __LINE__);
}

void logThrowingCallback(const char* what) {
    writeLog(kLogError, kLogTagSession, "[%s:%d]the host's callback threw: %s", "QuPCAudioMessage::callHost",
             __LINE__, what);
    orvel::FLUSHLOG();
}

/// An exception of the host's has nowhere to go: its callback is called from the loop. It ends the process, as one that
/// leaves a thread does, and the log says what it was.
void callOrEnd(void (*callback)(int, int), int first, int second) noexcept {
    try {
        callback(first, second);
    } catch (const std::exception& error) {
        logThrowingCallback(error.what());
        std::terminate();
    } catch (...) {
        logThrowingCallback("no std::exception");
        std::terminate();
    }
}

} // namespace

QuPCAudioMessage::QuPCAudioMessage(std::shared_ptr<OUVLoop> loop) : OStreamPipe(std::move(loop)) {
    setStream(this);
}

QuPCAudioMessage::~QuPCAudioMessage() {
    readStop();
}

bool QuPCAudioMessage::init(const AudioServiceParam& param) {
    constexpr const char* kName = "QuPCAudioMessage::init";
    if (param.onEvent == nullptr || param.onError == nullptr || param.context == nullptr) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]param error, init failed.", kName, __LINE__);
        return false;
    }
    Connection found = Connection::Idle;
    LoopEntry::CallPtr queued;
    {
        // The record is taken, and sent or left to the connect under way, in one step: none is lost between the two.
        const std::lock_guard guard(mMutex);
        params = param;
        found = mConnection.load();
        if (found == Connection::Connected || found == Connection::Lost) {
            queued = queueNotify(koruInfoPayload(params));
        } else if (found == Connection::Idle || found == Connection::Failed) {
            change(ConnectionEvent::ConnectBegun);
        }
    }
    switch (found) {
    case Connection::Connected:
    case Connection::Lost:
        logKORUInfo();
        finishSend(queued);
        return true;
    case Connection::Idle:
    case Connection::Failed:
        return beginConnect();
    case Connection::Connecting:
        // A connect that no thread has run the loop for yet (the thread could not be started) is this call's too.
        if (mLoop->runState.load() == OUVLoop::kNotRunning) {
            return true;
        }
        writeLog(kLogError, kLogTagSession, "[%s:%d]connect failed %d.", kName, __LINE__, false);
        return false;
    case Connection::Ending:
    case Connection::Gone:
        break;
    }
    writeLog(kLogError, kLogTagSession, "[%s:%d]session is ending, init failed.", kName, __LINE__);
    return false;
}

bool QuPCAudioMessage::beginConnect() {
    bool begun = false;
    try {
        begun = connect(kServicePeerName);
    } catch (const std::bad_alloc&) {
        const std::lock_guard guard(mMutex);
        change(ConnectionEvent::ConnectFailed);
        throw;
    }
    if (!begun) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]connect failed %d.", "QuPCAudioMessage::init", __LINE__,
                 begun);
        const std::lock_guard guard(mMutex);
        change(ConnectionEvent::ConnectFailed);
    }
    return begun;
}

bool QuPCAudioMessage::setAccountID(const char* text) {
    const std::size_t length = text != nullptr ? strnlen(text, SONVIA_TEXT_SIZE) : 0;
    if (length == 0 || length >= SONVIA_TEXT_SIZE) {
        return false;
    }
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        // The field is meant to keep the tail of a longer id: hosts rely on what is sent after a shorter one.
        AudioServiceParam next = params;
        std::memcpy(next.accountID, text, length);
        queued = queueNotify(accountPayload(next));
        std::memcpy(params.accountID, text, length);
    }
    finishSend(queued);
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]send notify accountid.", "QuPCAudioMessage::setAccountID",
             __LINE__);
    return true;
}

void QuPCAudioMessage::endProjection(std::atomic<std::uint16_t>& sequence) {
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        queued = queueNumbered(kCommandNotify, sequence,
                               numberPayload(protocol::kKeyExitAudioProjection, kNotifyExitProjection),
                               kMostWaiting);
    }
    finishSend(queued);
}

void QuPCAudioMessage::stopService(std::atomic<std::uint16_t>& sequence) {
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        const bool waitsForConnect = mConnection.load() == Connection::Connecting;
        change(ConnectionEvent::SessionEnds);
        if (waitsForConnect) {
            mHeldStop = &sequence;
        } else {
            queued = queueNumbered(kCommandStopPCAudioZLK, sequence, stopPayload(), LoopEntry::kUnlimited);
        }
    }
    mLoop->finish(queued);
}

void QuPCAudioMessage::noteServiceGone() {
    const std::lock_guard guard(mMutex);
    change(ConnectionEvent::ServiceGone);
}

void QuPCAudioMessage::_setKORUInfoNotify() {
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        queued = queueNotify(koruInfoPayload(params));
    }
    logKORUInfo();
    finishSend(queued);
}

bool QuPCAudioMessage::write(const OBufList& list) {
    if (const std::size_t unsent = unsentBytes(); unsent > kMostUnsent) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]%zu bytes are unsent, a packet is dropped",
                 "QuPCAudioMessage::write", __LINE__, unsent);
        return false;
    }
    return OStreamPipe::write(list);
}

void QuPCAudioMessage::onRead(OBufList list, std::int32_t /*status*/) {
    try {
        DepackPacket(list);
    } catch (const std::bad_alloc&) {
        // Must not throw: called from libuv. Where the next packet begins is no longer known.
        readStop();
        onError(UV_ENOMEM);
    }
}

void QuPCAudioMessage::onError(std::int32_t code) {
    constexpr const char* kName = "QuPCAudioMessage::onError";
    writeLog(kLogWarning, kLogTagSession, "[%s:%d]nErrorCode:%d", kName, __LINE__, code);
    const bool isLost = code == UV_ECONNRESET || code == UV_EOF;
    Connection found = Connection::Idle;
    bool isHeard = false;
    {
        const std::lock_guard guard(mMutex);
        found = mConnection.load();
        isHeard = params.onError != nullptr;
        if (isLost) {
            change(ConnectionEvent::StreamEnded);
        }
    }
    if (!isHeard || (found != Connection::Connected && found != Connection::Lost)) {
        return;
    }
    if (isLost) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]kSinkErrorConnection,errorCode: %d", kName, __LINE__,
                 code);
        reportError(SONVIA_ERROR_CONNECTION, code);
        return;
    }
    writeLog(kLogError, kLogTagSession, "[%s:%d]kSinkErrorProtocol,errorCode: %d", kName, __LINE__, code);
    reportError(SONVIA_ERROR_STREAM, code);
}

void QuPCAudioMessage::onConnect(uv_connect_t* /*req*/, std::int32_t status) {
    if (status != 0) {
        connectFailed(status);
    } else if (!readStart()) {
        noteBroken(); // a connection that cannot be read is none: the next connect makes a new pipe
        connectFailed(UV_ENOTCONN);
    } else {
        connectionIsReadable();
    }
}

void QuPCAudioMessage::connectFailed(std::int32_t status) {
    {
        const std::lock_guard guard(mMutex);
        change(ConnectionEvent::ConnectFailed);
    }
    writeLog(kLogError, kLogTagSession, "[%s:%d]connect failed %d", "QuPCAudioMessage::onConnect", __LINE__,
             status);
    reportError(SONVIA_ERROR_CONNECTION, 0);
}

// Sends past the queue: nothing that a host has queued meanwhile may overtake the device information.
void QuPCAudioMessage::connectionIsReadable() {
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]Connect successed, start recv.", "QuPCAudioMessage::onConnect",
             __LINE__);
    try {
        OBufList payload;
        std::atomic<std::uint16_t>* heldStop = nullptr;
        {
            // A record that is taken after this is sent by its own call.
            const std::lock_guard guard(mMutex);
            change(ConnectionEvent::ConnectSucceeded);
            heldStop = std::exchange(mHeldStop, nullptr);
            payload = koruInfoPayload(params);
        }
        logKORUInfo();
        sendNotify(std::move(payload));
        if (heldStop != nullptr) {
            sendNumbered(kCommandStopPCAudioZLK, *heldStop, stopPayload());
        }
    } catch (const std::bad_alloc&) {
        onError(UV_ENOMEM); // the host hears that its record has not been sent
    }
}

void QuPCAudioMessage::onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                                std::uint32_t length) {
    // A thousand events may have come at once; a host that is releasing its handle waits for one of them at most.
    if (connection() == Connection::Gone) {
        return;
    }
    if (header->cmdType == kCommandNotify) {
        dispatchNotify(payload, length);
    }
}

void QuPCAudioMessage::change(ConnectionEvent event) {
    mConnection = after(mConnection.load(), event);
}

LoopEntry::CallPtr QuPCAudioMessage::queueNotify(OBufList payload) {
    return mLoop->queue([this, payload = std::move(payload)]() mutable { sendNotify(std::move(payload)); },
                        kMostWaiting);
}

LoopEntry::CallPtr QuPCAudioMessage::queueNumbered(std::uint16_t cmdType,
                                                   std::atomic<std::uint16_t>& sequence, OBufList payload,
                                                   std::size_t most) {
    return mLoop->queue(
        [this, cmdType, &sequence, payload = std::move(payload)]() mutable {
            sendNumbered(cmdType, sequence, std::move(payload));
        },
        most);
}

void QuPCAudioMessage::finishSend(const LoopEntry::CallPtr& queued) {
    if (queued == nullptr && !mLoop->hasBeenStopped()) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]%zu packets are waiting, one is dropped",
                 "QuPCAudioMessage::finishSend", __LINE__, kMostWaiting);
    }
    mLoop->finish(queued);
}

void QuPCAudioMessage::sendNotify(OBufList payload) {
    sendCommand(kCommandNotify, static_cast<std::uint16_t>(notifySequence), std::move(payload));
    ++notifySequence;
}

// The first packet of such a series carries 1.
void QuPCAudioMessage::sendNumbered(std::uint16_t cmdType, std::atomic<std::uint16_t>& sequence,
                                    OBufList payload) {
    const auto seq = static_cast<std::uint16_t>(sequence.load() + 1);
    sendCommand(cmdType, seq, std::move(payload));
    sequence = seq;
}

void QuPCAudioMessage::reportEvent(int event, int value) {
    void (*callback)(int, int) = nullptr;
    {
        const std::lock_guard guard(mMutex);
        callback = params.onEvent;
    }
    callHost(callback, event, value);
}

void QuPCAudioMessage::reportError(int code, int value) {
    void (*callback)(int, int) = nullptr;
    {
        const std::lock_guard guard(mMutex);
        callback = params.onError;
    }
    callHost(callback, code, value);
}

void QuPCAudioMessage::callHost(void (*callback)(int, int), int first, int second) {
    if (callback != nullptr) {
        mLoop->runOutside([=]() noexcept { callOrEnd(callback, first, second); });
    }
}
