#include "oracle/packets.h"

namespace oracle {

namespace {

constexpr std::size_t kHeaderSize = 1 + 2 + 2 + 4;

} // namespace

std::vector<Packet> takePackets(Bytes& stream) {
    std::vector<Packet> packets;
    std::size_t at = 0;
    while (stream.size() - at >= kHeaderSize) {
        Packet next;
        next.magic = stream[at];
        next.command = static_cast<std::uint16_t>(number(stream, at + 1, 2));
        next.sequence = static_cast<std::uint16_t>(number(stream, at + 3, 2));
        next.size = static_cast<std::uint32_t>(number(stream, at + 5, 4));
        if (stream.size() - at - kHeaderSize < next.size) {
            break;
        }
        next.payload = part(stream, at + kHeaderSize, next.size);
        at += kHeaderSize + next.size;
        packets.push_back(next);
    }
    stream = part(stream, at, stream.size() - at);
    return packets;
}

Bytes encodePacket(std::uint16_t command, std::uint16_t sequence, const Bytes& payload) {
    Bytes packet = {'$'};
    appendNumber(packet, command, 2);
    appendNumber(packet, sequence, 2);
    appendNumber(packet, payload.size(), 4);
    append(packet, payload);
    return packet;
}

} // namespace oracle
