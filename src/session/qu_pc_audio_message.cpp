#include "session/qu_pc_audio_message.h"

#include "log/write_log.h"
#include "protocol/command_names.h"
#include "protocol/key_value.h"

#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr const char* kServicePeerName = "QuPCAudio";

/// A text of the host's record; the host need not have terminated it.
std::string textOf(const char (&field)[SONVIA_TEXT_SIZE]) {
    return {field, strnlen(field, sizeof field)};
}

} // namespace

QuPCAudioMessage::QuPCAudioMessage(std::shared_ptr<OUVLoop> loop) : OStreamPipe(std::move(loop)) {
    setStream(this);
}

QuPCAudioMessage::~QuPCAudioMessage() {
    readStop();
}

bool QuPCAudioMessage::take(const AudioServiceParam& param) {
    if (param.onEvent == nullptr || param.onError == nullptr || param.context == nullptr) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]param error, init failed.", "QuPCAudioMessage::init",
                 __LINE__);
        return false;
    }
    const std::lock_guard guard(mParamsMutex);
    params = param;
    return true;
}

bool QuPCAudioMessage::init(const AudioServiceParam& param) {
    constexpr const char* kName = "QuPCAudioMessage::init";
    if (!take(param)) {
        return false;
    }
    if (mEnding.load()) { // a connect begun now would keep the loop that is to end
        writeLog(kLogError, kLogTagSession, "[%s:%d]session is ending, init failed.", kName, __LINE__);
        return false;
    }
    if (connected.load()) {
        _setKORUInfoNotify();
        return true;
    }
    const bool connectStarted = connect(kServicePeerName);
    if (!connectStarted) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]connect failed %d.", kName, __LINE__, connectStarted);
    }
    return connectStarted;
}

bool QuPCAudioMessage::setAccountID(const char* text) {
    const std::size_t length = text != nullptr ? strnlen(text, SONVIA_TEXT_SIZE) : 0;
    if (length == 0 || length >= SONVIA_TEXT_SIZE) {
        return false;
    }
    std::string accountID;
    {
        // The field is meant to keep the tail of a longer id: hosts rely on what is sent after a shorter one.
        const std::lock_guard guard(mParamsMutex);
        std::memcpy(params.accountID, text, length);
        accountID = textOf(params.accountID);
    }
    const auto seq = static_cast<std::uint16_t>(notifySequence.fetch_add(1));
    OBufList payload;
    KeyValueBuf().addString("accountID", accountID).finish(payload);
    send(kCommandNotify, seq, std::move(payload));
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]send notify accountid.", "QuPCAudioMessage::setAccountID",
             __LINE__);
    return true;
}

void QuPCAudioMessage::_setKORUInfoNotify() {
    const AudioServiceParam now = currentParams();
    KeyValueBuf info;
    info.addString("accountID", textOf(now.accountID))
        .addString("bluetoothMac", textOf(now.bluetoothMac))
        .addString("deviceID", textOf(now.deviceID))
        .addString("model", textOf(now.model))
        .addString("sn", textOf(now.sn))
        .addString("pcName", textOf(now.pcName));
    OBufList payload;
    KeyValueBuf().addKeyValueBuf("KORUInfo", info).finish(payload);
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]send notify koru info.",
             "QuPCAudioMessage::_setKORUInfoNotify", __LINE__);
    const auto seq = static_cast<std::uint16_t>(notifySequence.fetch_add(1));
    send(kCommandNotify, seq, std::move(payload));
}

void QuPCAudioMessage::send(std::uint16_t cmdType, std::uint16_t seq, OBufList payload) {
    mLoop->dispatch([this, cmdType, seq, payload = std::move(payload)] {
        if (mServiceGone.load()) {
            return;
        }
        if (cmdType == kCommandStopPCAudioZLK && connecting.load()) {
            mHeldStop = [this, cmdType, seq, payload] { sendCommand(cmdType, seq, payload); };
            return;
        }
        sendCommand(cmdType, seq, payload);
    });
}

void QuPCAudioMessage::endSession() {
    mEnding = true;
    connected = false;
}

void QuPCAudioMessage::onRead(OBufList list, std::int32_t /*status*/) {
    try {
        DepackPacket(std::move(list));
    } catch (const std::bad_alloc&) {
        // libuv, which called this, must not be thrown through, and where the next packet begins is not known any more.
        readStop();
        onError(UV_ENOMEM);
    }
}

void QuPCAudioMessage::onError(std::int32_t code) {
    constexpr const char* kName = "QuPCAudioMessage::onError";
    writeLog(kLogWarning, kLogTagSession, "[%s:%d]nErrorCode:%d", kName, __LINE__, code);
    // `connected` stays set: a later setParam re-sends over the lost connection instead of making a new one,
    // and what a host may do about a lost connection is to release the handle.
    if (!connected.load() || currentParams().onError == nullptr) {
        return;
    }
    if (code == UV_ECONNRESET || code == UV_EOF) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]kSinkErrorConnection,errorCode: %d", kName, __LINE__,
                 code);
        reportError(SONVIA_ERROR_CONNECTION, code);
        return;
    }
    writeLog(kLogError, kLogTagSession, "[%s:%d]kSinkErrorProtocol,errorCode: %d", kName, __LINE__, code);
    reportError(SONVIA_ERROR_STREAM, code);
}

void QuPCAudioMessage::onConnect(uv_connect_t* /*req*/, std::int32_t status) {
    constexpr const char* kName = "QuPCAudioMessage::onConnect";
    if (status != 0) {
        connected = false;
        writeLog(kLogError, kLogTagSession, "[%s:%d]connect failed %d", kName, __LINE__, status);
        reportError(SONVIA_ERROR_CONNECTION, 0);
        return;
    }
    readStart();
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]Connect successed, start recv.", kName, __LINE__);
    _setKORUInfoNotify();
    connected = true;
    if (mEnding.load()) { // the host is shutting down: its silence must outlive a connect that comes late
        connected = false;
        if (mHeldStop) {
            mHeldStop();
        }
    }
}

void QuPCAudioMessage::onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                                std::uint32_t length) {
    // A thousand events may have come at once; a host that is releasing its handle waits for one of them at most.
    if (mServiceGone.load()) {
        return;
    }
    if (header->cmdType == kCommandNotify) {
        dispatchNotify(payload, length);
    }
}

void QuPCAudioMessage::reportEvent(int event, int value) {
    const auto callback = currentParams().onEvent;
    if (callback != nullptr) {
        callback(event, value);
    }
}

void QuPCAudioMessage::reportError(int code, int value) {
    const auto callback = currentParams().onError;
    if (callback != nullptr) {
        callback(code, value);
    }
}

AudioServiceParam QuPCAudioMessage::currentParams() {
    const std::lock_guard guard(mParamsMutex);
    return params;
}
