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
        // The record is taken, and sent or left to the connect under way, in one step: none is lost between the two.
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

void QuPCAudioMessage::noteServiceGone() {
    const std::lock_guard guard(mMutex);
    change(ConnectionEvent::ServiceGone);
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
            payload = session::koruInfoPayload(params);
        }
        logKORUInfo();
        sendNotify(std::move(payload));
        if (heldStop != nullptr) {
            sendNumbered(kCommandStopPCAudioZLK, *heldStop, session::stopServicePayload());
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
