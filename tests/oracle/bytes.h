#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// The second opinion: decoders and encoders written from the layout of the bytes alone, as plainly as can be. They
/// include nothing of the library, so that a mistake there meets no twin here.
namespace oracle {

using Bytes = std::vector<std::uint8_t>;

/// The big-endian number of `width` bytes at `from`; the bytes must be there.
inline std::uint64_t number(const Bytes& bytes, std::size_t from, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < width; ++index) {
        value = value * 256 + bytes.at(from + index);
    }
    return value;
}

/// `count` bytes from `from` on; they must be there.
inline Bytes part(const Bytes& bytes, std::size_t from, std::size_t count) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

inline void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        append(all, part);
    }
    return all;
}

inline void appendNumber(Bytes& bytes, std::uint64_t value, unsigned width) {
    for (unsigned index = width; index-- > 0;) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * index)));
    }
}

inline Bytes bigEndian(std::uint64_t value, unsigned width) {
    Bytes bytes;
    appendNumber(bytes, value, width);
    return bytes;
}

inline std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

inline Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

} // namespace oracle
