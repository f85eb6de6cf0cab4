#include "wire.h"

namespace standin {

namespace {

// Reads one payload from front to end; the first failure sticks.
class EntryReader {
public:
    explicit EntryReader(std::string_view bytes) : mRest(bytes) {}

    bool atEnd() const { return mRest.empty(); }

    const std::string& error() const { return mError; }

    Entry read() {
        Entry entry;
        entry.key = std::string(take(static_cast<std::size_t>(takeNumber(1, "key length")), "key"));
        entry.type = static_cast<std::uint8_t>(takeNumber(1, "type"));
        if (!mError.empty()) {
            return entry;
        }
        const ValueLayout layout = layoutOf(entry.type);
        if (!layout.known) {
            fail("type " + std::to_string(entry.type) + " has no value layout");
            return entry;
        }
        std::size_t width = layout.fixedWidth;
        if (layout.lengthWidth != 0) {
            width = static_cast<std::size_t>(takeNumber(layout.lengthWidth, "value length"));
        }
        entry.raw = std::string(take(width, "value"));
        if (entry.type == kNestedType && mError.empty()) {
            DecodedEntries inner = decodeEntries(entry.raw);
            entry.nested = std::move(inner.entries);
            if (!inner.error.empty()) {
                fail("inside \"" + entry.key + "\": " + inner.error);
            }
        }
        return entry;
    }

private:
    std::string_view take(std::size_t count, const char* what) {
        if (!mError.empty()) {
            return {};
        }
        if (count > mRest.size()) {
            fail(std::string(what) + " needs " + std::to_string(count) + " bytes, " +
                 std::to_string(mRest.size()) + " left");
            return {};
        }
        const std::string_view taken = mRest.substr(0, count);
        mRest.remove_prefix(count);
        return taken;
    }

    std::uint64_t takeNumber(std::size_t width, const char* what) { return getNumber(take(width, what)); }

    void fail(std::string reason) {
        if (mError.empty()) {
            mError = std::move(reason);
        }
    }

    std::string_view mRest;
    std::string mError;
};

} // namespace

ValueLayout layoutOf(std::uint8_t type) {
    switch (type) {
    case 0:
    case 1:
    case 2:
    case 3:
        return {0, 1, true};
    case 4:
    case 5:
        return {0, 2, true};
    case 6:
    case 7:
    case 10:
        return {0, 4, true};
    case 8:
    case 9:
    case 11:
        return {0, 8, true};
    case 12:
    case 13:
    case 14:
        return {2, 0, true};
    case 20:
    case 21:
    case 22:
        return {4, 0, true};
    default:
        return {};
    }
}

void putNumber(std::string& out, std::uint64_t value, std::size_t width) {
    for (std::size_t i = width; i > 0; --i) {
        out.push_back(static_cast<char>((value >> (8 * (i - 1))) & 0xFFU));
    }
}

std::uint64_t getNumber(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes) {
        value = (value << 8U) | static_cast<unsigned char>(byte);
    }
    return value;
}

void putHeader(std::string& out, const Header& header) {
    putNumber(out, header.magic, 1);
    putNumber(out, header.command, 2);
    putNumber(out, header.seq, 2);
    putNumber(out, header.size, 4);
}

void putEntryStart(std::string& out, std::string_view key, std::uint8_t type) {
    putNumber(out, key.size(), 1);
    out.append(key);
    putNumber(out, type, 1);
}

DecodedEntries decodeEntries(std::string_view payload) {
    DecodedEntries decoded;
    EntryReader reader(payload);
    while (!reader.atEnd()) {
        Entry entry = reader.read();
        if (!reader.error().empty()) {
            decoded.error = reader.error();
            return decoded;
        }
        decoded.entries.push_back(std::move(entry));
    }
    return decoded;
}

void PacketCutter::feed(std::string_view bytes) {
    if (!mError.empty()) {
        return;
    }
    mBuffer.erase(0, mStart);
    mStart = 0;
    mBuffer.append(bytes);
}

std::optional<Packet> PacketCutter::next() {
    const std::string_view rest = std::string_view(mBuffer).substr(mStart);
    if (!mError.empty() || rest.size() < kHeaderSize) {
        return std::nullopt;
    }
    Packet packet;
    packet.header.magic = static_cast<std::uint8_t>(getNumber(rest.substr(0, 1)));
    packet.header.command = static_cast<std::uint16_t>(getNumber(rest.substr(1, 2)));
    packet.header.seq = static_cast<std::uint16_t>(getNumber(rest.substr(3, 2)));
    packet.header.size = static_cast<std::uint32_t>(getNumber(rest.substr(5, 4)));
    if (packet.header.magic != kMagic) {
        mError = "magic byte is " + std::to_string(packet.header.magic);
        return std::nullopt;
    }
    if (packet.header.size > kSaneSize) {
        mError = "announced size is " + std::to_string(packet.header.size);
        return std::nullopt;
    }
    if (rest.size() - kHeaderSize < packet.header.size) {
        return std::nullopt;
    }
    packet.payload = std::string(rest.substr(kHeaderSize, packet.header.size));
    mStart += kHeaderSize + packet.header.size;
    return packet;
}

} // namespace standin
