#include "support/protocol/protocol_support.h"
#include "oracle/packets.h"

#include <algorithm>
#include <cstring>

namespace support {

OBufList chainOf(const oracle::Bytes& bytes) {
    return chainOfPieces(bytes, bytes.size());
}

OBufList chainOfPieces(const oracle::Bytes& bytes, std::size_t pieceSize) {
    OBufList chain;
    for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
        chain.push_back(OBufView::make(bytes.data() + at, std::min(pieceSize, bytes.size() - at)));
    }
    return chain;
}

OBufView readOf(const std::uint8_t* bytes, std::size_t size) {
    OBufView view;
    view.reset(64 * 1024);
    std::memcpy(view.data(), bytes, size);
    view.setLength(size);
    return view;
}

oracle::Bytes bytesOf(const OBufList& list) {
    oracle::Bytes bytes;
    for (const OBufView& view : list) {
        bytes.insert(bytes.end(), view.data(), view.data() + view.length);
    }
    return bytes;
}

std::vector<oracle::Packet> RecordingSocket::packets() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    oracle::Bytes all;
    for (const OBufList& write : writes) {
        const oracle::Bytes bytes = bytesOf(write);
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return oracle::takePackets(all);
}

void RecordingProtocol::onPacket(const CtrlPacketHeader* header, const std::uint8_t* payload,
                                 std::uint32_t length) {
    Received packet;
    packet.header = *header;
    packet.nullPayload = payload == nullptr;
    if (payload != nullptr) {
        packet.payload.assign(payload, payload + length);
    }
    received.push_back(packet);
    payloadPlaces.push_back(payload);
}

std::vector<oracle::Packet> RecordingProtocol::packets() const {
    std::vector<oracle::Packet> packets;
    for (const Received& packet : received) {
        packets.push_back({packet.header.magic, packet.header.cmdType, packet.header.seq, packet.payload});
    }
    return packets;
}

} // namespace support
