#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Packets as they are on the pipe, put together and cut without the library.

inline constexpr std::uint16_t kNotify = 34;

std::string numberPacket(std::uint16_t sequence, std::string_view key, std::uint32_t value);
std::string textPacket(std::uint16_t sequence, std::string_view key, std::string_view text);

/// A big-endian number.
std::uint32_t readNumber(const char* bytes, std::size_t width);

/// Cuts received bytes into packets in the barest way: a buffer that is appended to, and each whole packet handed up.
class BareCut {
public:
    /// `packet` begins with the header.
    using Take = void (*)(void* context, const char* packet, std::size_t size);

    BareCut(Take take, void* context) : mTake(take), mContext(context) {}

    void feed(const char* bytes, std::size_t size);

private:
    Take mTake;
    void* mContext;
    std::string mPending;
};

inline constexpr std::size_t kHeaderSize = 9;

/// Where the value of a one-number packet with such a key begins.
constexpr std::size_t valueOffset(std::string_view key) {
    return kHeaderSize + 1 + key.size() + 1;
}
