#include "unit/protocol/wire_bytes.h"

#include <cstddef>

namespace wire {

Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string textOf(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes bigEndian(std::uint64_t value, unsigned width) {
    Bytes bytes;
    for (unsigned index = width; index-- > 0;) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * index)));
    }
    return bytes;
}

Layout layoutOf(std::uint8_t type) {
    static const Bytes one = {0, 1, 2, 3};
    static const Bytes two = {4, 5};
    static const Bytes four = {6, 7, 10};
    static const Bytes eight = {8, 9, 11};
    const auto in = [type](const Bytes& codes) {
        return std::string(codes.begin(), codes.end()).find(static_cast<char>(type)) != std::string::npos;
    };
    if (in(one)) {
        return {0, 1};
    }
    if (in(two)) {
        return {0, 2};
    }
    if (in(four)) {
        return {0, 4};
    }
    if (in(eight)) {
        return {0, 8};
    }
    if (type >= 12 && type <= 14) {
        return {2, 0};
    }
    if (type >= 20 && type <= 22) {
        return {4, 0};
    }
    return {0, 0};
}

Bytes rawEntry(const std::string& key, std::uint8_t type, const Bytes& value) {
    return join({{static_cast<std::uint8_t>(key.size())}, bytesOf(key), {type}, value});
}

Bytes entry(const Entry& entry) {
    const unsigned lengthWidth = layoutOf(entry.type).lengthWidth;
    return rawEntry(entry.key, entry.type, join({bigEndian(entry.value.size(), lengthWidth), entry.value}));
}

Bytes intEntry(const std::string& key, std::int32_t value) {
    return entry({key, kTypeInt, bigEndian(static_cast<std::uint32_t>(value), 4)});
}

Bytes textEntry(const std::string& key, const std::string& value) {
    return entry({key, kTypeText, bytesOf(value)});
}

Bytes packet(std::uint16_t cmdType, std::uint16_t seq, const Bytes& payload, std::uint8_t magic) {
    return join({{magic}, bigEndian(cmdType, 2), bigEndian(seq, 2), bigEndian(payload.size(), 4), payload});
}

namespace {

std::uint64_t number(const Bytes& bytes, std::size_t from, unsigned width) {
    std::uint64_t value = 0;
    for (unsigned index = 0; index < width; ++index) {
        value = value * 256 + bytes[from + index];
    }
    return value;
}

Bytes part(const Bytes& bytes, std::size_t from, std::size_t count) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

} // namespace

std::vector<Packet> takePackets(Bytes& stream) {
    std::vector<Packet> packets;
    std::size_t at = 0;
    while (stream.size() - at >= 9) {
        const std::uint64_t size = number(stream, at + 5, 4);
        if (stream.size() - at - 9 < size) {
            break;
        }
        packets.push_back({stream[at], static_cast<std::uint16_t>(number(stream, at + 1, 2)),
                           static_cast<std::uint16_t>(number(stream, at + 3, 2)),
                           part(stream, at + 9, size)});
        at += 9 + size;
    }
    stream.erase(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(at));
    return packets;
}

std::vector<Entry> entriesOf(const Bytes& payload) {
    std::vector<Entry> entries;
    std::size_t at = 0;
    const auto left = [&] { return payload.size() - at; };
    while (left() != 0) {
        const std::size_t keyLength = payload[at];
        if (left() < keyLength + 2) {
            entries.push_back({"<cut>", 0, {}});
            break;
        }
        Entry next{textOf(part(payload, at + 1, keyLength)), payload[at + 1 + keyLength], {}};
        at += keyLength + 2;
        const Layout layout = layoutOf(next.type);
        std::uint64_t size = layout.fixedWidth;
        if (left() < layout.lengthWidth) {
            entries.push_back({"<cut>", 0, {}});
            break;
        }
        if (layout.lengthWidth != 0) {
            size = number(payload, at, layout.lengthWidth);
            at += layout.lengthWidth;
        }
        if (left() < size) {
            entries.push_back({"<cut>", 0, {}});
            break;
        }
        next.value = part(payload, at, size);
        at += size;
        entries.push_back(next);
    }
    return entries;
}

std::int32_t intOf(const Bytes& value) {
    return value.size() == 4 ? static_cast<std::int32_t>(number(value, 0, 4)) : INT32_MIN;
}

} // namespace wire
