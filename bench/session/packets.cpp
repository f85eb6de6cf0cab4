#include "packets.h"

namespace {

constexpr char kTypeInt = 6;
constexpr char kTypeString = 20;

void appendNumber(std::string& bytes, std::uint32_t value, unsigned width) {
    for (unsigned shift = width * 8; shift > 0; shift -= 8) {
        bytes.push_back(static_cast<char>(value >> (shift - 8)));
    }
}

std::string packetOf(std::uint16_t sequence, const std::string& payload) {
    std::string packet = "$";
    appendNumber(packet, kNotify, 2);
    appendNumber(packet, sequence, 2);
    appendNumber(packet, static_cast<std::uint32_t>(payload.size()), 4);
    return packet + payload;
}

std::string entryOf(std::string_view key, char type) {
    std::string entry(1, static_cast<char>(key.size()));
    return entry.append(key) + type;
}

} // namespace

std::string numberPacket(std::uint16_t sequence, std::string_view key, std::uint32_t value) {
    std::string payload = entryOf(key, kTypeInt);
    appendNumber(payload, value, 4);
    return packetOf(sequence, payload);
}

std::string textPacket(std::uint16_t sequence, std::string_view key, std::string_view text) {
    std::string payload = entryOf(key, kTypeString);
    appendNumber(payload, static_cast<std::uint32_t>(text.size()), 4);
    return packetOf(sequence, payload.append(text));
}

std::uint32_t readNumber(const char* bytes, std::size_t width) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

void BareCut::feed(const char* bytes, std::size_t size) {
    mPending.append(bytes, size);
    std::size_t at = 0;
    while (mPending.size() - at >= kHeaderSize) {
        const std::size_t whole = kHeaderSize + readNumber(&mPending[at + 5], 4);
        if (mPending.size() - at < whole) {
            break;
        }
        mTake(mContext, &mPending[at], whole);
        at += whole;
    }
    mPending.erase(0, at);
}
