#include "protocol/ctrl_protocol.h"

#include "log/write_log.h"
#include "protocol/big_endian.h"
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

constexpr std::uint8_t kMagic = 0x24; // '$'
constexpr std::uint64_t kTailCapacity = 65536;
constexpr std::uint64_t kShortestShared = 4096; // bytes: a copy of fewer is cheaper than a block of their own

using HeaderBytes = std::array<std::uint8_t, sizeof(CtrlPacketHeader)>;
using MallocBytes = std::unique_ptr<std::uint8_t, void (*)(void*)>;

CtrlPacketHeader headerFrom(const HeaderBytes& bytes) {
    return {bytes[0], readU16(&bytes[1]), readU16(&bytes[3]), readU32(&bytes[5])};
}

HeaderBytes bytesOf(std::uint16_t cmdType, std::uint16_t seq, std::uint32_t size) {
    const auto byte = [](std::uint32_t value, unsigned shift) {
        return static_cast<std::uint8_t>(value >> shift);
    };
    return {kMagic,         byte(cmdType, 8), byte(cmdType, 0), byte(seq, 8), byte(seq, 0),
            byte(size, 24), byte(size, 16),   byte(size, 8),    byte(size, 0)};
}

/// The pieces as one run of `size` bytes; null when memory ran out.
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
            writeLog(kLogError, kLogTagDefault, "[%s:%d]idx:%u + getSize:%u > size:%u is error",
                     "CtrlProtocol::sendCommand", __LINE__, static_cast<unsigned>(index),
                     static_cast<unsigned>(piece.length), static_cast<unsigned>(size));
            break;
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
    // The header's place is taken first. Without it nothing is sent, for a packet that lacks a byte puts the peer out
    // of step for good; and nothing is protected, for a chain that moved without the peer spoils the next packet.
    OBufList packet(1);
    OBufView& header = packet.front();
    if (header.reset(sizeof(CtrlPacketHeader)) == nullptr) {
        writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", "CtrlProtocol::sendCommand",
                 __LINE__, static_cast<int>(sizeof(CtrlPacketHeader)));
        throw std::bad_alloc();
    }
    if (mSafetyDataDeal != nullptr) {
        protectPayload(payload);
    }
    const HeaderBytes bytes = bytesOf(cmdType, seq, static_cast<std::uint32_t>(totalLength(payload)));
    std::memcpy(header.data(), bytes.data(), bytes.size());
    packet.splice(packet.end(), payload);
    mStream->write(packet);
}

// A payload that cannot be protected stays plain and is sent all the same. That is meant: the peer sees from
// its own context that the packet is not what it expects, while refusing here would lose the command without
// a trace.
void CtrlProtocol::protectPayload(OBufList& payload) const {
    const std::uint64_t size = totalLength(payload);
    MallocBytes plain(nullptr, std::free);
    if (size != 0) {
        plain = joined(payload, size);
        if (plain == nullptr) {
            return;
        }
    }
    // Everything that the protected payload is carried in is there before the chain moves: no memory is needed after.
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

// A peer decides in how many reads a packet comes. So a read that completes nothing is kept beside the earlier ones
// without a walk over them: with one, the time for a large packet would grow with the square of its size, on the
// thread that everything else waits for.
void CtrlProtocol::DepackPacket(OBufList received) {
    if (mPendingSize + totalLength(received) < awaited()) {
        keepRest(received.begin(), received.end(), 0);
        return;
    }
    OBufList input;
    input.swap(mPending);
    mPendingSize = 0;
    input.splice(input.end(), received);
    OBufReader reader(std::move(input));
    while (reader.remaining() >= awaited()) {
        if (mDepackState == kExpectHeader) {
            HeaderBytes bytes = {};
            reader.readBytes(bytes.data(), bytes.size());
            mHeader = headerFrom(bytes);
            mDepackState = kExpectBody;
            continue;
        }
        // The state is the next packet's before this one is handed up: a handler may feed a packet of its own.
        mDepackState = kExpectHeader;
        const CtrlPacketHeader header = mHeader;
        const std::uint8_t* body = nullptr;
        if (reader.readContiguous(&body, header.size)) {
            deliver(header, body);
        } else { // all bytes are here, but no memory to hold them in one run: only this packet is lost
            writeLog(kLogError, kLogTagDefault, "[%s:%d]malloc size:%d failed", "CtrlProtocol::DepackPacket",
                     __LINE__, static_cast<int>(header.size));
            reader.readBytes(nullptr, header.size);
        }
    }
    keepRest(reader.current, reader.views.end(), reader.posInView);
}

std::uint64_t CtrlProtocol::awaited() const {
    return mDepackState == kExpectHeader ? sizeof(CtrlPacketHeader) : mHeader.size;
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

// These have just been received: what was kept before is less than the first step of a reader takes.
void CtrlProtocol::keepRest(OBufList::const_iterator view, OBufList::const_iterator end, std::uint64_t from) {
    for (; view != end; ++view) {
        OBufView rest;
        if (view->slice(rest, from, view->length - from)) {
            keep(rest);
            mPendingSize += rest.length;
        }
        from = 0;
    }
}

// A read comes in a block of 64 KB even when it holds one byte, or, where frames are cut small, in a block of one byte. A
// peer that drips its bytes must not make us hold a block and a node for each, so sparse and short views are copied
// together; long and well filled ones are shared.
void CtrlProtocol::keep(const OBufView& rest) {
    if (rest.length >= kShortestShared && rest.length >= rest.buffer->capacity / 4) {
        mPending.push_back(rest);
        return;
    }
    const bool appends = !mPending.empty() && mPending.back().buffer == mTail;
    if (appends) {
        OBufView& last = mPending.back();
        const std::uint64_t end = last.offset + last.length;
        if (rest.length <= mTail->capacity - end) {
            std::memcpy(mTail->data + end, rest.data(), static_cast<std::size_t>(rest.length));
            last.length += rest.length;
            return;
        }
    }
    OBufView tail;
    if (tail.reset(std::max(kTailCapacity, rest.length)) == nullptr) {
        mPending.push_back(rest);
        return;
    }
    std::memcpy(tail.data(), rest.data(), static_cast<std::size_t>(rest.length));
    tail.length = rest.length;
    mTail = tail.buffer;
    mPending.push_back(std::move(tail));
}
