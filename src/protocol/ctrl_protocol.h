#pragma once

#include "protocol/wire_format.h"
#include "transport/buf_list.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

class OBaseSocket;
class SafetyDataDeal;

/// Turns command payloads into packets on a stream, and received bytes back into packets. Takes no lock: sendCommand is for
/// the thread that may enter libuv, DepackPacket for the loop thread. They share only the protection context, of which
/// each uses its own direction.
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
    /// and valid during the call only; both are unprotected already. Forwards to
    /// the handler.
    virtual void onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length);

    /// Writes one packet. Without a stream nothing happens; a packet that the stream refuses is lost. A payload that cannot
    /// be protected is sent plain, see protectPayload. Throws std::bad_alloc: nothing is sent then, and the encryption
    /// chain is unchanged.
    void sendCommand(std::uint16_t cmdType, std::uint16_t seq, OBufList payload);

    /// Takes the next received bytes and calls onPacket for every packet that they complete. onPacket may call this
    /// again with whole packets: they are delivered before those that follow in the outer call.
    void DepackPacket(const OBufList& received);

    /// Sets the stream that packets are written to; not owned, must outlive this object. Null for none.
    void setStream(OBaseSocket* stream) { mStream = stream; }

    void setHandler(Handler handler) { mHandlerFn = std::move(handler); }

    /// Installs the protection for both directions; null removes it. Not in the middle of a packet.
    void setSafetyDataDeal(std::shared_ptr<SafetyDataDeal> context) { mSafetyDataDeal = std::move(context); }

private:
    enum DepackState : std::uint32_t { kExpectHeader = 0, kExpectBody = 1 };

    void protectPayload(OBufList& payload) const;

    /// The next received bytes.
    void depack(const OBufView& received);
    /// Handles all complete steps at the front of `bytes`, delivers their packets and returns the number of bytes used. Only
    /// while nothing is pending.
    std::size_t deliverWhole(const std::uint8_t* bytes, std::size_t size);
    /// Size of the next step: a header, or the payload that the header announced.
    std::uint64_t awaited() const;
    /// Handles the next step once all its bytes are pending.
    void takePending();
    void deliver(const CtrlPacketHeader& header, const std::uint8_t* body);
    /// Makes `rest` pending.
    void keep(const OBufView& rest);

    DepackState mDepackState = kExpectHeader;
    OBufList mPending;              ///< received and not yet consumed: less than the next step needs
    std::uint64_t mPendingSize = 0; ///< bytes in mPending
    OBufView mTail; ///< block that short views are collected in, at the end of mPending or free
    OBaseSocket* mStream = nullptr;
    CtrlPacketHeader mHeader = {};
    Handler mHandlerFn;
    std::shared_ptr<SafetyDataDeal> mSafetyDataDeal;
};
