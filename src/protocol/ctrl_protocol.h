#pragma once

#include "protocol/wire_format.h"
#include "transport/buf_list.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

class OBaseSocket;
class SafetyDataDeal;

/// Turns command payloads into packets on a stream and cuts received bytes back into packets. Takes no lock:
/// sendCommand is for whoever may enter libuv, DepackPacket for the loop thread. They share nothing but the protection
/// context, of which each uses its own direction.
class CtrlProtocol {
public:
    class KeyValueBuf;
    class KeyValueData;

    using Handler = std::function<void(const CtrlPacketHeader*, const std::uint8_t*, std::uint32_t)>;

    CtrlProtocol() = default;
    virtual ~CtrlProtocol() = default;
    CtrlProtocol(const CtrlProtocol&) = delete;
    CtrlProtocol& operator=(const CtrlProtocol&) = delete;

    /// Called once for each complete packet, in the order of arrival. `payload` is null when `length` is 0
    /// and valid during the call only; both are what is left after protection has been taken off. Forwards to
    /// the handler.
    virtual void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length);

    /// Writes one packet. Without a stream nothing happens; a write that the stream refuses is lost. A
    /// payload that cannot be protected goes out plain, see protectPayload. When memory runs out before that, the
    /// command is lost whole, std::bad_alloc says so, and the encryption chain is where it was.
    void sendCommand(std::uint16_t cmdType, std::uint16_t seq, OBufList payload);

    /// Takes the next received bytes and calls onPacket for every packet that they complete. onPacket may call this
    /// again with whole packets: they are delivered before those that follow in the outer call.
    void DepackPacket(const OBufList& received);

    /// The stream that packets are written to; not owned, must outlive this object. Null: not connected to
    /// any.
    void setStream(OBaseSocket* stream) { mStream = stream; }

    void setHandler(Handler handler) { mHandlerFn = std::move(handler); }

    /// Installs the protection for both directions, or, when empty, takes it off. Not in the middle of a
    /// packet.
    void setSafetyDataDeal(std::shared_ptr<SafetyDataDeal> context) { mSafetyDataDeal = std::move(context); }

private:
    enum DepackState : std::uint32_t { kExpectHeader = 0, kExpectBody = 1 };

    void protectPayload(OBufList& payload) const;

    /// The next received bytes.
    void depack(const OBufView& received);
    /// Takes all whole steps at the front of `bytes` and delivers their packets; returns how many bytes that were. While
    /// nothing is pending.
    std::size_t deliverWhole(const std::uint8_t* bytes, std::size_t size);
    /// Bytes of the next step: a header, or the body of the header that was read.
    std::uint64_t awaited() const;
    /// That step, when all its bytes are pending.
    void takePending();
    void deliver(const CtrlPacketHeader& header, const std::uint8_t* body);
    /// Makes `rest` pending.
    void keep(const OBufView& rest);

    DepackState mDepackState = kExpectHeader;
    OBufList mPending;              ///< received and not yet consumed: less than what is awaited
    std::uint64_t mPendingSize = 0; ///< bytes in mPending
    OBufView mTail; ///< block that short views are collected in, at the end of mPending or free
    OBaseSocket* mStream = nullptr;
    CtrlPacketHeader mHeader = {};
    Handler mHandlerFn;
    std::shared_ptr<SafetyDataDeal> mSafetyDataDeal;
};
