// What a session sends. Packets are queued in the order of the calls, and each gets the next number of its series.

#include "log/write_log.h"
#include "protocol/command_names.h"
#include "session/payloads.h"
#include "session/qu_pc_audio_message.h"

#include <cstring>
#include <mutex>
#include <utility>

namespace {

/// Limit of unread bytes, for a service that does not read: thousands of packets.
constexpr std::size_t kMaxUnsentBytes = 4UL * 1024 * 1024;

/// Limit of packets that wait to enter libuv, for a peer that keeps the loop thread inside it.
constexpr std::size_t kMaxWaitingPackets = 1000;

} // namespace

bool QuPCAudioMessage::setAccountID(const char* text) {
    const std::size_t length = text != nullptr ? strnlen(text, SONVIA_TEXT_SIZE) : 0;
    if (length == 0 || length >= SONVIA_TEXT_SIZE) {
        return false;
    }
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        // Kept for compatibility: a shorter id leaves the tail of a longer one in the field, and hosts rely on what is sent
        // then.
        AudioServiceParam next = params;
        std::memcpy(next.accountID, text, length);
        queued = queueNotify(session::accountPayload(next));
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
        queued =
            queueNumbered(kCommandNotify, sequence, session::exitProjectionPayload(), kMaxWaitingPackets);
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
            queued = queueNumbered(kCommandStopPCAudioZLK, sequence, session::stopServicePayload(),
                                   LoopEntry::kUnlimited);
        }
    }
    mLoop->finish(queued);
}

void QuPCAudioMessage::_setKORUInfoNotify() {
    LoopEntry::CallPtr queued;
    {
        const std::lock_guard guard(mMutex);
        queued = queueNotify(session::koruInfoPayload(params));
    }
    logKORUInfo();
    finishSend(queued);
}

void QuPCAudioMessage::logKORUInfo() {
    writeLog(kLogInfo, kLogTagSession, "[%s:%d]send notify koru info.",
             "QuPCAudioMessage::_setKORUInfoNotify", __LINE__);
}

bool QuPCAudioMessage::write(const OBufList& list) {
    if (const std::size_t unsent = unsentBytes(); unsent > kMaxUnsentBytes) {
        writeLog(kLogError, kLogTagSession, "[%s:%d]%zu bytes are unsent, a packet is dropped",
                 "QuPCAudioMessage::write", __LINE__, unsent);
        return false;
    }
    return OStreamPipe::write(list);
}

LoopEntry::CallPtr QuPCAudioMessage::queueNotify(OBufList payload) {
    return mLoop->queue([this, payload = std::move(payload)]() mutable { sendNotify(std::move(payload)); },
                        kMaxWaitingPackets);
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
                 "QuPCAudioMessage::finishSend", __LINE__, kMaxWaitingPackets);
    }
    mLoop->finish(queued);
}

void QuPCAudioMessage::sendNotify(OBufList payload) {
    sendCommand(kCommandNotify, static_cast<std::uint16_t>(notifySequence), std::move(payload));
    ++notifySequence;
}

// The first packet of each series carries 1.
void QuPCAudioMessage::sendNumbered(std::uint16_t cmdType, std::atomic<std::uint16_t>& sequence,
                                    OBufList payload) {
    const auto seq = static_cast<std::uint16_t>(sequence.load() + 1);
    sendCommand(cmdType, seq, std::move(payload));
    sequence = seq;
}
