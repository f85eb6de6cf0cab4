// The bytes that a packet description stands for.
#include <algorithm>

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "scenario.h"

namespace standin {

namespace {

using oracle::Bytes;

Bytes entriesOf(const std::vector<EntrySpec>& entries, const Counters& counters);

// A value with the length in front of it that the type asks for, or with the one that the scenario announces.
Bytes withLength(const EntrySpec& entry, std::uint8_t type, const Bytes& value, const Counters& counters) {
    const std::uint64_t length = entry.announcedLength
                                     ? static_cast<std::uint64_t>(entry.announcedLength->value(counters))
                                     : value.size();
    return oracle::join({oracle::bigEndian(length, oracle::layoutOf(type).lengthWidth), value});
}

Bytes entryOf(const EntrySpec& entry, const Counters& counters) {
    using Kind = EntrySpec::Kind;
    const std::string key = entry.key.value(counters);
    const auto number = static_cast<std::uint64_t>(entry.number.value(counters));
    const auto withValue = [&](std::uint8_t type, const Bytes& value) {
        return oracle::encodeRaw(key, type, withLength(entry, type, value, counters));
    };
    switch (entry.kind) {
    case Kind::kByte:
        return oracle::encodeRaw(key, oracle::kTypeByte, oracle::bigEndian(number, 1));
    case Kind::kInt:
        return oracle::encodeRaw(key, oracle::kTypeInt, oracle::bigEndian(number, 4));
    case Kind::kString:
        return withValue(oracle::kTypeText, oracle::bytesOf(entry.text.value(counters)));
    case Kind::kFillString:
        return withValue(oracle::kTypeText, Bytes(static_cast<std::size_t>(number), 'x'));
    case Kind::kNested:
        return withValue(oracle::kTypeNested, entriesOf(entry.nested, counters));
    case Kind::kTyped:
        return oracle::encodeRaw(key, entry.type, entry.bytes);
    case Kind::kHex:
        break;
    }
    return entry.bytes;
}

Bytes entriesOf(const std::vector<EntrySpec>& entries, const Counters& counters) {
    Bytes bytes;
    for (const EntrySpec& entry : entries) {
        oracle::append(bytes, entryOf(entry, counters));
    }
    return bytes;
}

} // namespace

oracle::Bytes encodePacket(const PacketSpec& packet, std::uint16_t seq, const Counters& counters) {
    const auto valueOr = [&](const std::optional<Number>& number, std::uint64_t otherwise) {
        return number ? static_cast<std::uint64_t>(number->value(counters)) : otherwise;
    };
    Bytes payload = entriesOf(packet.entries, counters);
    const auto cut = static_cast<std::size_t>(packet.cut.value(counters));
    payload.resize(payload.size() - std::min(cut, payload.size()));
    const Bytes header =
        oracle::encodeHeader(static_cast<std::uint8_t>(valueOr(packet.magic, oracle::kMagic)),
                             static_cast<std::uint16_t>(packet.command.value(counters)),
                             static_cast<std::uint16_t>(valueOr(packet.seq, seq)),
                             static_cast<std::uint32_t>(valueOr(packet.announcedSize, payload.size())));
    return oracle::join({header, payload});
}

} // namespace standin
