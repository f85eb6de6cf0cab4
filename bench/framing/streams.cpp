#include "streams.h"

#include <algorithm>
#include <random>

namespace {

constexpr std::size_t kHeaderSize = 9;
constexpr std::uint8_t kNotify = 34;

} // namespace

Stream packetOf(std::uint16_t sequence, const Stream& payload) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    Stream packet(kHeaderSize + payload.size());
    packet[0] = '$';
    packet[2] = kNotify;
    packet[3] = static_cast<std::uint8_t>(sequence >> 8);
    packet[4] = static_cast<std::uint8_t>(sequence);
    for (unsigned byte = 0; byte < 4; ++byte) {
        packet[5 + byte] = static_cast<std::uint8_t>(size >> (24 - 8 * byte));
    }
    std::copy(payload.begin(), payload.end(), packet.begin() + kHeaderSize);
    return packet;
}

Packets packetsOf(std::size_t count, std::size_t size) {
    std::minstd_rand random(1);
    Packets all;
    all.stream.reserve(count * size);
    for (std::size_t index = 0; index < count; ++index) {
        Stream payload(size - kHeaderSize);
        std::generate(payload.begin(), payload.end(),
                      [&random] { return static_cast<std::uint8_t>(random()); });
        const auto sequence = static_cast<std::uint16_t>(index);
        const Stream packet = packetOf(sequence, payload);
        all.stream.insert(all.stream.end(), packet.begin(), packet.end());
        all.delivered.add(kNotify, sequence, payload.data(), static_cast<std::uint32_t>(payload.size()));
    }
    return all;
}

void AppendedBuffer::receive(const std::uint8_t* bytes, std::size_t size) {
    mBuffer.insert(mBuffer.end(), bytes, bytes + size);
    const std::uint8_t* next = mBuffer.data();
    std::size_t left = mBuffer.size();
    while (left >= kHeaderSize) {
        const std::uint32_t payload = static_cast<std::uint32_t>(next[5]) << 24 |
                                      static_cast<std::uint32_t>(next[6]) << 16 |
                                      static_cast<std::uint32_t>(next[7]) << 8 | next[8];
        if (left - kHeaderSize < payload) {
            break;
        }
        mReceiver.onPacket(static_cast<std::uint16_t>(next[1] << 8 | next[2]),
                           static_cast<std::uint16_t>(next[3] << 8 | next[4]), next + kHeaderSize, payload);
        next += kHeaderSize + payload;
        left -= kHeaderSize + payload;
    }
    mBuffer.erase(mBuffer.begin(), mBuffer.end() - static_cast<std::ptrdiff_t>(left));
}
