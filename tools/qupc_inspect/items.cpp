#include "items.h"

#include <algorithm>

#include <fmt/format.h>

namespace inspect {

namespace {

constexpr std::size_t kSizeOffset = 5; // in a header

void addRows(std::vector<Row>& rows, const oracle::Bytes& payload, std::size_t offset, std::size_t depth) {
    const oracle::Decoded decoded = oracle::decode(payload);
    for (const oracle::Entry& entry : decoded.entries) {
        Row row;
        row.depth = depth;
        row.entry = entry;
        row.isList = entry.type == oracle::kTypeNested && depth < kDeepest;
        rows.push_back(row);
        if (row.isList) {
            addRows(rows, entry.value, offset + entry.valueOffset, depth + 1);
        }
    }
    if (decoded.fault) {
        Row row;
        row.depth = depth;
        row.fault = oracle::Fault{offset + decoded.fault->offset, decoded.fault->reason};
        row.rest = oracle::part(payload, decoded.end, payload.size() - decoded.end);
        rows.push_back(row);
    }
}

// Whether the message's header is one that a sender writes: plain payloads hardly ever begin like that.
bool looksProtected(const oracle::Bytes& payload) {
    if (payload.size() < 4 || payload[0] != 0 || payload[2] != 1 || (payload[3] & 0x1FU) != 0) {
        return false;
    }
    const unsigned padded = (payload[3] & 0x40U) != 0 ? 1 : 0;
    const unsigned checked = (payload[3] & 0x20U) != 0 ? 4 : 0;
    return payload[1] == 2 + padded + checked;
}

} // namespace

bool endsConnection(const std::string& mark) {
    return mark == "disconnect" || mark == "exit";
}

std::vector<Row> rowsOf(const Item& item) {
    std::vector<Row> rows;
    if (item.isPacket) {
        addRows(rows, item.packet.payload, item.wasOpened ? 0 : oracle::kHeaderSize, 0);
    }
    return rows;
}

std::optional<oracle::Fault> firstFault(const Item& item) {
    if (item.fault) {
        return item.fault;
    }
    const std::vector<Row> rows = rowsOf(item);
    const auto wrong =
        std::find_if(rows.begin(), rows.end(), [](const Row& row) { return row.fault.has_value(); });
    return wrong != rows.end() ? wrong->fault : std::nullopt;
}

void ItemReader::open(const oracle::Block& key, const oracle::Block& start) {
    mKey = Key{key, start};
    startConnection();
}

void ItemReader::startConnection() {
    for (Stream* stream : {&mHost, &mService}) {
        *stream = Stream();
        stream->side = stream == &mHost ? Side::Host : Side::Service;
        if (mKey) {
            stream->protection.emplace(mKey->key, mKey->start, mKey->start);
        }
    }
}

bool ItemReader::next(Item& item) {
    while (true) {
        item = Item();
        if (cut(mHost, item) || cut(mService, item)) {
            return true;
        }
        if (mEnding && (takeUnfinished(mHost, item) || takeUnfinished(mService, item))) {
            return true;
        }
        if (mEnding) {
            mEnding = false;
            startConnection();
            item.at = mChunk.at;
            item.line = mChunk.line;
            item.mark = mChunk.mark;
            return !item.mark.empty();
        }
        if (!mReader.next(mChunk) || mChunk.mark == "connect" || endsConnection(mChunk.mark)) {
            mEnding = true;
        } else if (mChunk.mark.empty()) {
            add(mChunk.from == Side::Host ? mHost : mService, mChunk);
        } else {
            item.at = mChunk.at;
            item.line = mChunk.line;
            item.mark = mChunk.mark;
            return true;
        }
    }
}

void ItemReader::add(Stream& stream, const Chunk& chunk) {
    stream.bytes.erase(stream.bytes.begin(),
                       stream.bytes.begin() + static_cast<std::ptrdiff_t>(stream.start));
    stream.start = 0;
    oracle::append(stream.bytes, chunk.bytes);
    stream.at = chunk.at;
    stream.line = chunk.line;
}

bool ItemReader::cut(Stream& stream, Item& item) {
    if (stream.oversized != 0 && stream.left() != 0) {
        cutOversized(stream, item);
        return true;
    }
    if (stream.left() < oracle::kHeaderSize) {
        return false;
    }
    const std::uint32_t size = oracle::announcedSize(stream.bytes, stream.start);
    if (size > oracle::PacketCutter::kSaneSize) {
        stream.oversized = oracle::kHeaderSize + std::uint64_t{size};
        item.fault =
            oracle::Fault{kSizeOffset, fmt::format("payload needs {} bytes, {} left: too many to be decoded",
                                                   size, stream.left() - oracle::kHeaderSize)};
        cutOversized(stream, item);
        return true;
    }
    if (stream.left() - oracle::kHeaderSize < size) {
        return false;
    }
    take(stream, oracle::kHeaderSize + size, item);
    readPacket(stream, item);
    return true;
}

void ItemReader::cutOversized(Stream& stream, Item& item) {
    if (!item.fault) {
        item.fault = oracle::Fault{
            0, fmt::format("of a payload that is not decoded, which needs {} bytes from here on",
                           stream.oversized)};
    }
    take(stream, std::min<std::uint64_t>(stream.left(), stream.oversized), item);
    stream.oversized -= item.bytes.size();
}

bool ItemReader::takeUnfinished(Stream& stream, Item& item) {
    const std::size_t left = stream.left();
    if (left == 0) {
        return false;
    }
    item.fault =
        left < oracle::kHeaderSize
            ? oracle::Fault{0, fmt::format("header needs {} bytes, {} left", oracle::kHeaderSize, left)}
            : oracle::Fault{oracle::kHeaderSize,
                            fmt::format("payload needs {} bytes, {} left",
                                        oracle::announcedSize(stream.bytes, stream.start),
                                        left - oracle::kHeaderSize)};
    take(stream, left, item);
    return true;
}

void ItemReader::take(Stream& stream, std::uint64_t size, Item& item) {
    const auto count = static_cast<std::size_t>(size);
    item.at = stream.at;
    item.line = stream.line;
    item.from = stream.side;
    item.offset = stream.offset;
    item.bytes = oracle::part(stream.bytes, stream.start, count);
    stream.start += count;
    stream.offset += count;
}

void ItemReader::readPacket(Stream& stream, Item& item) {
    oracle::Bytes whole = item.bytes;
    item.isPacket = true;
    item.packet = oracle::takePackets(whole).at(0);
    if (stream.protection) {
        const std::optional<oracle::Bytes> opened = stream.protection->open(item.packet.payload);
        item.wasOpened = opened.has_value();
        if (opened) {
            item.packet.payload = *opened;
        } else {
            item.fault = oracle::Fault{oracle::kHeaderSize, "the payload is not one that the key opens"};
        }
    } else if (looksProtected(item.packet.payload) && oracle::decode(item.packet.payload).fault) {
        item.fault = oracle::Fault{oracle::kHeaderSize, "the payload looks protected, --key opens it"};
    }
    if (item.packet.magic != oracle::kMagic) {
        item.fault = oracle::Fault{0, fmt::format("the first byte is {:02x}, not 24", item.packet.magic)};
    }
}

} // namespace inspect
