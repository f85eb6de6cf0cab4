// The bytes that a packet description stands for.
#include <algorithm>

#include "scenario.h"
#include "wire.h"

namespace standin {

namespace {

constexpr char kFillCharacter = 'x';

void putEntry(std::string& out, const EntrySpec& entry, const Counters& counters);

void putLengthAndBytes(std::string& out, const EntrySpec& entry, std::string_view bytes,
                       std::size_t lengthWidth, const Counters& counters) {
    const std::uint64_t length = entry.announcedLength
                                     ? static_cast<std::uint64_t>(entry.announcedLength->value(counters))
                                     : bytes.size();
    putNumber(out, length, lengthWidth);
    out.append(bytes);
}

std::string nestedBytes(const EntrySpec& entry, const Counters& counters) {
    std::string inner;
    for (const EntrySpec& child : entry.nested) {
        putEntry(inner, child, counters);
    }
    return inner;
}

void putEntry(std::string& out, const EntrySpec& entry, const Counters& counters) {
    using Kind = EntrySpec::Kind;
    const std::string key = entry.key.value(counters);
    const auto number = static_cast<std::uint64_t>(entry.number.value(counters));
    switch (entry.kind) {
    case Kind::kByte:
        putEntryStart(out, key, kByteType);
        putNumber(out, number, 1);
        break;
    case Kind::kInt:
        putEntryStart(out, key, kIntType);
        putNumber(out, number, 4);
        break;
    case Kind::kString:
        putEntryStart(out, key, kStringType);
        putLengthAndBytes(out, entry, entry.text.value(counters), 4, counters);
        break;
    case Kind::kFillString:
        putEntryStart(out, key, kStringType);
        putLengthAndBytes(out, entry, std::string(static_cast<std::size_t>(number), kFillCharacter), 4,
                          counters);
        break;
    case Kind::kNested:
        putEntryStart(out, key, kNestedType);
        putLengthAndBytes(out, entry, nestedBytes(entry, counters), 2, counters);
        break;
    case Kind::kTyped:
        putEntryStart(out, key, entry.type);
        out.append(entry.bytes);
        break;
    case Kind::kHex:
        out.append(entry.bytes);
        break;
    }
}

} // namespace

std::string encodePacket(const PacketSpec& packet, std::uint16_t seq, const Counters& counters) {
    std::string payload;
    for (const EntrySpec& entry : packet.entries) {
        putEntry(payload, entry, counters);
    }
    const auto cut = static_cast<std::size_t>(packet.cut.value(counters));
    payload.resize(payload.size() - std::min(cut, payload.size()));

    Header header;
    header.command = static_cast<std::uint16_t>(packet.command.value(counters));
    header.seq = packet.seq ? static_cast<std::uint16_t>(packet.seq->value(counters)) : seq;
    header.size =
        static_cast<std::uint32_t>(packet.announcedSize ? packet.announcedSize->value(counters)
                                                        : static_cast<std::int64_t>(payload.size()));
    if (packet.magic) {
        header.magic = static_cast<std::uint8_t>(packet.magic->value(counters));
    }
    std::string out;
    putHeader(out, header);
    return out.append(payload);
}

} // namespace standin
