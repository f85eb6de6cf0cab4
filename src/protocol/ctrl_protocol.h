#pragma once

#include "transport/buf_view.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

class OBaseSocket;
class SafetyDataDeal;

#pragma pack(push, 1)

/// The 9 bytes in front of every payload, here in host order.
struct CtrlPacketHeader {
    std::uint8_t magic;    ///< '$' in packets that are sent; not checked in received ones
    std::uint16_t cmdType; ///< command id
    std::uint16_t seq;     ///< chosen by the sender
    std::uint32_t size;    ///< payload bytes that follow, as they are on the pipe
};

#pragma pack(pop)
static_assert(sizeof(CtrlPacketHeader) == 9);

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
    void DepackPacket(OBufList received);

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
    void deliver(const CtrlPacketHeader& header, const std::uint8_t* body);
    /// What has to be there before the next step: a whole header, or the whole body of the one that was read.
    std::uint64_t awaited() const;
    /// Keeps the views up to `end`, the first one from byte `from` on.
    void keepRest(OBufList::const_iterator view, OBufList::const_iterator end, std::uint64_t from);
    void keep(const OBufView& rest);

    DepackState mDepackState = kExpectHeader;
    OBufList mPending;                 ///< received and not yet consumed: less than what is awaited
    std::uint64_t mPendingSize = 0;    ///< bytes in mPending, counted along: see DepackPacket
    std::shared_ptr<ORefBuffer> mTail; ///< block at the end of mPending that sparse reads are collected in
    OBaseSocket* mStream = nullptr;
    CtrlPacketHeader mHeader = {};
    Handler mHandlerFn;
    std::shared_ptr<SafetyDataDeal> mSafetyDataDeal;
};
