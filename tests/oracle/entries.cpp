#include "oracle/entries.h"

#include <algorithm>

namespace oracle {

namespace {

/// One letter a type, from 0 on: the digit is the width of the value, 's' and 'l' stand for a short (2 bytes) and a
/// long (4 bytes) length in front of it, '-' for a type without a value.
constexpr char kLayouts[] = "1111224488"
                            "48sss-----"
                            "lll";

const Entry* find(const Entries& entries, const std::string& key, std::uint8_t type) {
    const auto place = entries.find(key);
    return place != entries.end() && place->second.type == type ? &place->second : nullptr;
}

Fault shortOf(const char* what, std::uint64_t needed, std::size_t left, std::size_t offset) {
    return {offset, std::string(what) + " needs " + std::to_string(needed) + " bytes, " +
                        std::to_string(left) + " left"};
}

} // namespace

Layout layoutOf(std::uint8_t type) {
    const char letter = type < sizeof kLayouts - 1 ? kLayouts[type] : '-';
    switch (letter) {
    case '-':
        return {};
    case 's':
        return {2, 0, true};
    case 'l':
        return {4, 0, true};
    default:
        return {0, static_cast<unsigned>(letter - '0'), true};
    }
}

bool EntryReader::next(Entry& entry) {
    std::size_t at = mAt;
    const auto missing = [&](const char* what, std::uint64_t needed) {
        const std::size_t left = mPayload.size() - at;
        if (left < needed) {
            fault = shortOf(what, needed, left, at);
        }
        return left < needed;
    };
    if (fault || at == mPayload.size()) {
        return false;
    }
    const std::size_t keyLength = mPayload[at++];
    if (missing("key", keyLength)) {
        return false;
    }
    entry.key = text(part(mPayload, at, keyLength));
    at += keyLength;
    if (missing("type", 1)) {
        return false;
    }
    entry.typeOffset = at;
    entry.type = mPayload[at++];
    const Layout layout = layoutOf(entry.type);
    if (missing("value length", layout.lengthWidth)) {
        return false;
    }
    const std::uint64_t size =
        layout.lengthWidth != 0 ? number(mPayload, at, layout.lengthWidth) : layout.fixedWidth;
    at += layout.lengthWidth;
    if (missing("value", size)) {
        return false;
    }
    entry.valueOffset = at;
    entry.value = part(mPayload, at, static_cast<std::size_t>(size));
    mAt = at + static_cast<std::size_t>(size);
    return true;
}

Decoded decode(const Bytes& payload) {
    Decoded decoded;
    EntryReader reader(payload);
    for (Entry entry; reader.next(entry); decoded.end = reader.offset()) {
        if (!layoutOf(entry.type).known) {
            decoded.fault =
                Fault{entry.typeOffset, "type " + std::to_string(entry.type) + " has no value layout"};
            return decoded;
        }
        decoded.entries.push_back(entry);
    }
    decoded.fault = reader.fault;
    return decoded;
}

Entries entriesOf(const Bytes& payload) {
    Entries entries;
    EntryReader reader(payload);
    for (Entry entry; reader.next(entry);) {
        if (layoutOf(entry.type).known) {
            entries[entry.key] = entry;
        }
    }
    return entries;
}

std::optional<std::uint8_t> byteOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kTypeByte);
    return entry != nullptr ? std::optional(entry->value.at(0)) : std::nullopt;
}

std::optional<std::int32_t> intOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kTypeInt);
    return entry != nullptr ? std::optional(intOf(entry->value)) : std::nullopt;
}

std::optional<std::string> textOf(const Entries& entries, const std::string& key) {
    const Entry* entry = find(entries, key, kTypeText);
    return entry != nullptr ? std::optional(text(entry->value)) : std::nullopt;
}

std::int32_t intOf(const Bytes& value) {
    return value.size() == 4 ? static_cast<std::int32_t>(number(value, 0, 4)) : INT32_MIN;
}

Bytes encodeStart(const std::string& key, std::uint8_t type) {
    Bytes bytes;
    appendNumber(bytes, key.size(), 1);
    append(bytes, bytesOf(key));
    bytes.push_back(type);
    return bytes;
}

Bytes encodeRaw(const std::string& key, std::uint8_t type, const Bytes& value) {
    return join({encodeStart(key, type), value});
}

Bytes encode(const Entry& entry) {
    const unsigned width = layoutOf(entry.type).lengthWidth;
    return encodeRaw(entry.key, entry.type, join({bigEndian(entry.value.size(), width), entry.value}));
}

Bytes encodeInt(const std::string& key, std::int64_t value) {
    return encodeRaw(key, kTypeInt, bigEndian(static_cast<std::uint64_t>(value), 4));
}

Bytes encodeText(const std::string& key, const std::string& value) {
    return encodeRaw(key, kTypeText, join({bigEndian(value.size(), 4), bytesOf(value)}));
}

Bytes encodeNested(const std::string& key, const Bytes& inner) {
    return encodeRaw(key, kTypeNested, join({bigEndian(inner.size(), 2), inner}));
}

Bytes masked(const Bytes& payload) {
    Bytes result = payload;
    const auto at = [&](std::size_t offset) { return result.begin() + static_cast<std::ptrdiff_t>(offset); };
    const Decoded decoded = decode(payload);
    for (const Entry& entry : decoded.entries) {
        const Bytes value = entry.type == kTypeNested ? masked(entry.value) : Bytes(entry.value.size(), 'x');
        if (layoutOf(entry.type).lengthWidth != 0) {
            std::copy(value.begin(), value.end(), at(entry.valueOffset));
        }
    }
    if (decoded.fault) {
        std::fill(at(std::max(decoded.end, decoded.fault->offset)), result.end(), std::uint8_t{'x'});
    }
    return result;
}

} // namespace oracle
