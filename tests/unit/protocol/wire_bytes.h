// The bytes on the pipe, made and taken apart without the library: a mistake in its encoder is not hidden by the
// same mistake in its decoder.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace wire {

using Bytes = std::vector<std::uint8_t>;

struct Packet {
    std::uint8_t magic = 0;
    std::uint16_t cmdType = 0;
    std::uint16_t seq = 0;
    Bytes payload;

    friend bool operator==(const Packet&, const Packet&) = default;
};

struct Entry {
    std::string key;
    std::uint8_t type = 0;
    Bytes value; ///< without the length in front of it

    friend bool operator==(const Entry&, const Entry&) = default;
};

inline constexpr std::uint8_t kTypeByte = 3;
inline constexpr std::uint8_t kTypeInt = 6;
inline constexpr std::uint8_t kTypeNested = 14;
inline constexpr std::uint8_t kTypeText = 20;

Bytes bytesOf(const std::string& text);
std::string textOf(const Bytes& bytes);
Bytes join(std::initializer_list<Bytes> parts);
Bytes bigEndian(std::uint64_t value, unsigned width);

/// Width of the length in front of a value of this type (0: the width is fixed), and that fixed width.
struct Layout {
    unsigned lengthWidth;
    unsigned fixedWidth;
};

Layout layoutOf(std::uint8_t type);

/// An entry with its value as it stands: the caller supplies any length in front of it.
Bytes rawEntry(const std::string& key, std::uint8_t type, const Bytes& value);
/// An entry with the length, where the type has one, put in front of the value.
Bytes entry(const Entry& entry);
Bytes intEntry(const std::string& key, std::int32_t value);
Bytes textEntry(const std::string& key, const std::string& value);

Bytes packet(std::uint16_t cmdType, std::uint16_t seq, const Bytes& payload, std::uint8_t magic = 0x24);

/// Every whole packet; what is left over stays in `stream`.
std::vector<Packet> takePackets(Bytes& stream);
/// Every entry of a whole payload; an entry that does not end properly gives one with the key "<cut>".
std::vector<Entry> entriesOf(const Bytes& payload);
std::int32_t intOf(const Bytes& value);

} // namespace wire
