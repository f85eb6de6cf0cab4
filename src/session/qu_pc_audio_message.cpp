#include "session/qu_pc_audio_message.h"

#include "log/write_log.h"
#include "protocol/command_names.h"
#include "session/payloads.h"

#include <mutex>
#include <new>
#include <utility>

namespace {

constexpr const char* kServicePeerName = "QuPCAudio";

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
        // One step takes the record and decides whether this call or the connect under way sends it: no record is lost.
        const std::lock_guard guard(mMutex);
        params = param;
        mOnEvent = param.onEvent;
        mOnError = param.onError;
        found = mConnection.load();
        if (found == Connection::Connected || found == Connection::Lost) {
            queued = queueNotify(session::koruInfoPayload(params));
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
        // The loop thread could not be started yet: this call shares the connect of the earlier one.
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

void QuPCAudioMessage::keepPlayerStateIn(std::atomic<std::uint32_t>& place) {
    place = getPlayerState();
    mPlayerState = &place;
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

void QuPCAudioMessage::serviceHasEnded() {
    const std::lock_guard guard(mMutex);
    change(ConnectionEvent::ServiceGone);
}

void QuPCAudioMessage::onRead(OBufList list, std::int32_t /*status*/) {
    try {
        DepackPacket(list);
    } catch (const std::bad_alloc&) {
        // Must not throw: called from libuv. The start of the next packet is lost.
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
        markBroken(); // unusable without reading: the next connect makes a new pipe
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

// Bypasses the queue: nothing that a host has queued meanwhile may overtake the device information.
void QuPCAudioMessage::connectionIsReadable() {
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]Connect successed, start recv.", "QuPCAudioMessage::onConnect",
             __LINE__);
    try {
        OBufList payload;
        std::atomic<std::uint16_t>* heldStop = nullptr;
        {
            // Later records are sent by their own calls.
            const std::lock_guard guard(mMutex);
            change(ConnectionEvent::ConnectSucceeded);
            heldStop = std::exchange(mHeldStop, nullptr);
            payload = session::koruInfoPayload(params);
        }
        logKORUInfo();
        sendNotify(std::move(payload));
        if (heldStop != nullptr) {
            sendNumbered(kCommandStopPCAudioZLK, *heldStop, session::stopServicePayload());
        }
    } catch (const std::bad_alloc&) {
        onError(UV_ENOMEM); // reports that the record was not sent
    }
}

void QuPCAudioMessage::onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                                std::uint32_t length) {
    // One read may bring a thousand events; a host that releases its handle waits for at most one of them.
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
