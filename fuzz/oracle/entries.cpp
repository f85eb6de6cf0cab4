#include "oracle/entries.h"

namespace oracle {

namespace {

constexpr std::uint8_t kByteType = 3;
constexpr std::uint8_t kIntType = 6;
constexpr std::uint8_t kNestedType = 14;
constexpr std::uint8_t kTextType = 20;

/// One letter a type, from 0 on: the digit is the width of the value, 's' and 'l' stand for a short (2 bytes) and a
/// long (4 bytes) length in front of it, '-' for a type without a value.
constexpr char kLayouts[] = "1111224488"
                            "48sss-----"
                            "lll";

char layoutOf(std::uint8_t type) {
    return type < sizeof kLayouts - 1 ? kLayouts[type] : '-';
}

const Entry* find(const Entries& entries, const std::string& key, std::uint8_t type) {
    const auto place = entries.find(key);
    return place != entries.end() && place->second.type == type ? &place->second : nullptr;
}

Bytes start(const std::string& key, std::uint8_t type) {
    Bytes bytes;
    appendNumber(bytes, key.size(), 1);
    append(bytes, bytesOf(key));
    bytes.push_back(type);
    return bytes;
}

} // namespace

Entries entriesOf(const Bytes& payload) {
    Entries entries;
    std::size_t at = 0;
    while (at < payload.size()) {
        const std::size_t keyLength = payload[at];
        if (payload.size() - at < 1 + keyLength + 1) {
            break;
        }
        const std::string key = text(part(payload, at + 1, keyLength));
        at += 1 + keyLength;
        Entry entry;
        entry.typeOffset = at;
        entry.type = payload[at];
        ++at;
        const char layout = layoutOf(entry.type);
        if (layout == '-') {
            continue;
        }
        std::size_t size = static_cast<std::size_t>(layout - '0');
        if (layout == 's' || layout == 'l') {
            const std::size_t width = layout == 's' ? 2 : 4;
            if (payload.size() - at < width) {
                break;
            }
            size = number(payload, at, width);
            at += width;
        }
        if (payload.size() - at < size) {
            break;
        }
        entry.value = part(payload, at, size);
        at += size;
        entries[key] = entry;
    }
    return entries;
}

std::optional<std::uint8_t> byteOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kByteType);
    return entry != nullptr ? std::optional(entry->value.at(0)) : std::nullopt;
}

std::optional<std::int32_t> intOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kIntType);
    return entry != nullptr ? std::optional(static_cast<std::int32_t>(number(entry->value, 0, 4)))
                            : std::nullopt;
}

std::optional<std::string> textOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kTextType);
    return entry != nullptr ? std::optional(text(entry->value)) : std::nullopt;
}

Bytes encodeInt(const std::string& key, std::uint32_t value) {
    Bytes bytes = start(key, kIntType);
    appendNumber(bytes, value, 4);
    return bytes;
}

Bytes encodeText(const std::string& key, const std::string& value) {
    Bytes bytes = start(key, kTextType);
    appendNumber(bytes, value.size(), 4);
    append(bytes, bytesOf(value));
    return bytes;
}

Bytes encodeNested(const std::string& key, const Bytes& inner) {
    Bytes bytes = start(key, kNestedType);
    appendNumber(bytes, inner.size(), 2);
    append(bytes, inner);
    return bytes;
}

} // namespace oracle
