#include "protocol/ctrl_protocol.h"

#include "log/write_log.h"
#include "protocol/command_names.h"
#include "protocol/safety_data_deal.h"
#include "transport/buf_reader.h"
#include "transport/socket.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr std::uint64_t kTailCapacity = 65536;
constexpr std::uint64_t kMinShared = 4096; // bytes: copying fewer is cheaper than a block of their own

using MallocBytes = std::unique_ptr<std::uint8_t, void (*)(void*)>;

/// The pieces as one run of `size` bytes; null after an allocation failure.
MallocBytes joined(const OBufList& pieces, std::uint64_t size) {
    MallocBytes bytes(static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(size))), std::free);
    if (bytes == nullptr) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", "CtrlProtocol::sendCommand",
                 __LINE__, static_cast<int>(size));
        return bytes;
    }
    std::uint64_t index = 0;
    for (const OBufView& piece : pieces) {
        if (index + piece.length > size) {
            // GCOVR_EXCL_START The sum was taken of the same pieces just before.
            writeLog(kLogError, kLogTagDefault, "[%s:%d]idx:%u + getSize:%u > size:%u is error",
                     "CtrlProtocol::sendCommand", __LINE__, static_cast<unsigned>(index),
                     static_cast<unsigned>(piece.length), static_cast<unsigned>(size));
            break;
            // GCOVR_EXCL_STOP
        }
        std::memcpy(bytes.get() + index, piece.data(), static_cast<std::size_t>(piece.length));
        index += piece.length;
    }
    return bytes;
}

} // namespace

void CtrlProtocol::onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                            std::uint32_t length) {
    if (mHandlerFn) {
        mHandlerFn(header, payload, length);
    }
}

void CtrlProtocol::sendCommand(std::uint16_t cmdType, std::uint16_t seq, OBufList payload) {
    if (mStream == nullptr) {
        return;
    }
    // Allocates the header first. Without it nothing may be sent, since an incomplete packet breaks the peer's framing for
    // good, and nothing protected, since a chain that moves without the peer spoils the next packet.
    OBufList packet(1);
    OBufView& header = packet.front();
    if (header.reset(protocol::kHeaderSize) == nullptr) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", "CtrlProtocol::sendCommand",
                 __LINE__, static_cast<int>(protocol::kHeaderSize));
        throw std::bad_alloc();
    }
    if (mSafetyDataDeal != nullptr) {
        protectPayload(payload);
    }
    const auto size = static_cast<std::uint32_t>(totalLength(payload));
    protocol::storeHeader(header.data(), {protocol::kMagic, cmdType, seq, size});
    packet.append(std::move(payload));
    mStream->write(packet);
}

// Kept for compatibility: a payload that cannot be protected is sent plain. The peer sees from its own context that the
// packet is not what it expects; refused here, the command would be lost without a trace.
void CtrlProtocol::protectPayload(OBufList& payload) const {
    const std::uint64_t size = totalLength(payload);
    MallocBytes plain(nullptr, std::free);
    if (size != 0) {
        plain = joined(payload, size);
        if (plain == nullptr) {
            return;
        }
    }
    // Allocates everything before the chain moves: nothing may fail after that.
    OBufList carrier(1);
    OBufView& sealed = carrier.front();
    sealed.buffer = std::make_shared<ORefBuffer>();
    std::size_t sealedSize = 0;
    if (!mSafetyDataDeal->encryptData(plain.get(), static_cast<std::size_t>(size), &sealed.buffer->data,
                                      &sealedSize)) {
        return;
    }
    sealed.buffer->capacity = sealedSize;
    sealed.length = sealedSize;
    payload.swap(carrier);
}

void CtrlProtocol::DepackPacket(const OBufList& received) {
    for (const OBufView& view : received) {
        depack(view);
    }
}

// A peer decides in how many reads a packet arrives. A read that completes nothing is therefore stored without a walk over
// the earlier ones: that would take time in the square of the packet's size, on the loop thread.
void CtrlProtocol::depack(const OBufView& received) {
    const std::uint8_t* const bytes = received.data();
    const std::uint64_t size = bytes != nullptr ? received.length : 0;
    std::uint64_t used = 0;
    for (;;) {
        if (mPendingSize == 0) {
            used += deliverWhole(bytes + used, static_cast<std::size_t>(size - used));
        }
        const std::uint64_t count = std::min(awaited() - mPendingSize, size - used);
        if (OBufView part; received.slice(part, used, count)) {
            keep(part);
            used += count;
        }
        if (mPendingSize < awaited()) {
            return;
        }
        takePending();
    }
}

// Moves to the next packet before it delivers this one: a handler may feed a packet of its own.
std::size_t CtrlProtocol::deliverWhole(const std::uint8_t* bytes, std::size_t size) {
    std::size_t used = 0;
    if (mDepackState == kExpectBody) {
        if (size < mHeader.size) {
            return 0;
        }
        const CtrlPacketHeader header = mHeader;
        used = header.size;
        mDepackState = kExpectHeader;
        deliver(header, header.size != 0 ? bytes : nullptr);
    }
    while (size - used >= protocol::kHeaderSize) {
        const CtrlPacketHeader header = protocol::loadHeader(bytes + used);
        used += protocol::kHeaderSize;
        if (size - used < header.size) {
            mHeader = header;
            mDepackState = kExpectBody;
            break;
        }
        const std::uint8_t* const body = bytes + used;
        used += header.size;
        deliver(header, header.size != 0 ? body : nullptr);
    }
    return used;
}

std::uint64_t CtrlProtocol::awaited() const {
    return mDepackState == kExpectHeader ? protocol::kHeaderSize : mHeader.size;
}

void CtrlProtocol::takePending() {
    // A handler may feed a packet of its own: nothing is pending then, and its bytes keep their block.
    OBufReader reader(std::exchange(mPending, OBufList()));
    mPendingSize = 0;
    if (mDepackState == kExpectHeader) {
        std::array<std::uint8_t, protocol::kHeaderSize> bytes = {};
        reader.readBytes(bytes.data(), bytes.size());
        mHeader = protocol::loadHeader(bytes.data());
        mDepackState = kExpectBody;
        return;
    }
    mDepackState = kExpectHeader;
    const CtrlPacketHeader header = mHeader;
    const std::uint8_t* body = nullptr;
    if (reader.readContiguous(&body, header.size)) {
        deliver(header, body);
    } else { // an allocation failure: only this packet is lost
        writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", "CtrlProtocol::DepackPacket",
                 __LINE__, static_cast<int>(header.size));
    }
}

void CtrlProtocol::deliver(const CtrlPacketHeader& header, const std::uint8_t* body) {
    if (mSafetyDataDeal == nullptr) {
        onPacket(&header, body, header.size);
        return;
    }
    std::uint8_t* plain = nullptr;
    std::size_t plainSize = 0;
    if (!mSafetyDataDeal->decryptData(body, header.size, &plain, &plainSize)) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]cmdType:%s size:%d decryptData failed",
                 "CtrlProtocol::DepackPacket", __LINE__, commandName(header.cmdType).c_str(),
                 static_cast<int>(header.size));
        return;
    }
    const MallocBytes owned(plain, std::free);
    onPacket(&header, plainSize != 0 ? plain : nullptr, static_cast<std::uint32_t>(plainSize));
}

// A read uses a block of 64 KB even for one byte, or, where frames are small, a block of one byte. A peer that sends byte
// by byte must not cost a block for each, so sparse and short views are copied together; long and well filled ones are
// shared.
void CtrlProtocol::keep(const OBufView& rest) {
    if (rest.length >= kMinShared && rest.length >= rest.buffer->capacity / 4) {
        mPending.push_back(rest);
        mPendingSize += rest.length;
        return;
    }
    bool appends = !mPending.empty() && mPending.back().buffer == mTail.buffer;
    if (mTail.buffer != nullptr && mTail.buffer.use_count() == 1) {
        mTail.length = 0; // what it held has been delivered
    }
    if (mTail.buffer == nullptr || rest.length > mTail.buffer->capacity - mTail.length) {
        OBufView fresh;
        if (fresh.reset(std::max(kTailCapacity, rest.length)) == nullptr) {
            // GCOVR_EXCL_START An allocation failure.
            mPending.push_back(rest);
            mPendingSize += rest.length;
            return;
            // GCOVR_EXCL_STOP
        }
        fresh.length = 0;
        mTail = std::move(fresh);
        appends = false;
    }
    if (!appends) {
        OBufView collected = mTail;
        collected.offset = mTail.length;
        collected.length = 0;
        mPending.push_back(std::move(collected));
    }
    std::memcpy(mTail.buffer->data + mTail.length, rest.data(), static_cast<std::size_t>(rest.length));
    mTail.length += rest.length;
    mPending.back().length += rest.length;
    mPendingSize += rest.length;
}
