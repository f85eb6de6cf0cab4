#include "oracle/packets.h"

namespace oracle {

namespace {

/// The packet at `from`, which must be whole.
Packet packetAt(const Bytes& bytes, std::size_t from) {
    Packet packet;
    packet.magic = bytes[from];
    packet.command = static_cast<std::uint16_t>(number(bytes, from + 1, 2));
    packet.sequence = static_cast<std::uint16_t>(number(bytes, from + 3, 2));
    packet.payload = part(bytes, from + kHeaderSize, announcedSize(bytes, from));
    return packet;
}

} // namespace

std::uint32_t announcedSize(const Bytes& bytes, std::size_t from) {
    return static_cast<std::uint32_t>(number(bytes, from + 5, 4));
}

std::vector<Packet> takePackets(Bytes& stream) {
    std::vector<Packet> packets;
    std::size_t at = 0;
    while (stream.size() - at >= kHeaderSize &&
           stream.size() - at - kHeaderSize >= announcedSize(stream, at)) {
        packets.push_back(packetAt(stream, at));
        at += kHeaderSize + announcedSize(stream, at);
    }
    stream = part(stream, at, stream.size() - at);
    return packets;
}

Bytes encodeHeader(std::uint8_t magic, std::uint16_t command, std::uint16_t sequence, std::uint32_t size) {
    return join({{magic}, bigEndian(command, 2), bigEndian(sequence, 2), bigEndian(size, 4)});
}

Bytes encodePacket(std::uint16_t command, std::uint16_t sequence, const Bytes& payload, std::uint8_t magic) {
    return join(
        {encodeHeader(magic, command, sequence, static_cast<std::uint32_t>(payload.size())), payload});
}

void PacketCutter::feed(const Bytes& bytes) {
    if (!mError.empty()) {
        return;
    }
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(mStart));
    mStart = 0;
    append(mBuffer, bytes);
}

std::optional<Packet> PacketCutter::next() {
    if (!mError.empty() || pending() < kHeaderSize) {
        return std::nullopt;
    }
    if (mBuffer[mStart] != kMagic) {
        mError = "magic byte is " + std::to_string(mBuffer[mStart]);
        return std::nullopt;
    }
    const std::uint32_t size = announcedSize(mBuffer, mStart);
    if (size > kSaneSize) {
        mError = "announced size is " + std::to_string(size);
        return std::nullopt;
    }
    if (pending() - kHeaderSize < size) {
        return std::nullopt;
    }
    Packet packet = packetAt(mBuffer, mStart);
    mStart += kHeaderSize + size;
    return packet;
}

} // namespace oracle
