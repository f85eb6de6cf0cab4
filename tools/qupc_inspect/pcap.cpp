#include "pcap.h"

#include <algorithm>
#include <ostream>

namespace inspect {

namespace {

constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;
constexpr std::uint64_t kLengthUnknown = UINT64_MAX;
constexpr std::uint16_t kLinkUser0 = 147;
constexpr std::uint16_t kFlagsOption = 2;
constexpr std::uint32_t kInbound = 1; // as the host sees it
constexpr std::uint32_t kOutbound = 2;

/// A block under construction; numbers are little-endian, as its byte-order mark says.
class Block {
public:
    explicit Block(std::uint32_t type) : mType(type) {}

    Block& number(std::uint64_t value, unsigned width) {
        put(mBody, value, width);
        return *this;
    }

    Block& bytes(const oracle::Bytes& bytes, std::size_t count) {
        mBody.append(reinterpret_cast<const char*>(bytes.data()), count);
        mBody.resize((mBody.size() + 3) / 4 * 4);
        return *this;
    }

    void writeTo(std::ostream& out) const {
        std::string text;
        const std::size_t size = mBody.size() + 12;
        put(text, mType, 4);
        put(text, size, 4);
        text += mBody;
        put(text, size, 4);
        out << text;
    }

private:
    static void put(std::string& text, std::uint64_t value, unsigned width) {
        for (unsigned index = 0; index < width; ++index) {
            text.push_back(static_cast<char>(value >> (8 * index)));
        }
    }

    std::uint32_t mType;
    std::string mBody;
};

} // namespace

PcapWriter::PcapWriter(std::ostream& out) : mOut(out) {
    Block(kSectionBlock)
        .number(kByteOrder, 4)
        .number(1, 2)
        .number(0, 2)
        .number(kLengthUnknown, 8)
        .writeTo(mOut);
    Block(kInterfaceBlock).number(kLinkUser0, 2).number(0, 2).number(kLongestRecord, 4).writeTo(mOut);
}

void PcapWriter::write(const Item& item) {
    if (!item.mark.empty()) {
        return;
    }
    const auto at = static_cast<std::uint64_t>(std::max<std::int64_t>(item.at, 0));
    const std::size_t kept = std::min(item.bytes.size(), kLongestRecord);
    Block(kPacketBlock)
        .number(0, 4)
        .number(at >> 32U, 4)
        .number(at & UINT32_MAX, 4)
        .number(kept, 4)
        .number(item.bytes.size(), 4)
        .bytes(item.bytes, kept)
        .number(kFlagsOption, 2)
        .number(4, 2)
        .number(item.from == Side::Host ? kOutbound : kInbound, 4)
        .number(0, 4) // the end of the options
        .writeTo(mOut);
}

} // namespace inspect
