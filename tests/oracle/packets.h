#pragma once

#include "oracle/bytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace oracle {

inline constexpr std::uint8_t kMagic = '$';
inline constexpr std::size_t kHeaderSize = 1 + 2 + 2 + 4;
inline constexpr std::uint16_t kNotify = 34;
inline constexpr std::uint16_t kStop = 8193;

struct Packet {
    std::uint8_t magic = kMagic;
    std::uint16_t command = 0;
    std::uint16_t sequence = 0;
    Bytes payload;

    friend bool operator==(const Packet&, const Packet&) = default;
};

/// The payload size that the header at the front of these bytes announces; they must be 9 at least.
std::uint32_t announcedSize(const Bytes& bytes, std::size_t from = 0);

/// Takes every whole packet off the front of `stream`, whatever its first byte is; what is left is the start of one that
/// is not whole yet.
std::vector<Packet> takePackets(Bytes& stream);

Bytes encodeHeader(std::uint8_t magic, std::uint16_t command, std::uint16_t sequence, std::uint32_t size);
/// A packet as it is sent.
Bytes encodePacket(std::uint16_t command, std::uint16_t sequence, const Bytes& payload,
                   std::uint8_t magic = kMagic);

/// Cuts a byte stream into packets. A wrong first byte of a header or an announced size beyond `kSaneSize` breaks the
/// cutter for good: the stream cannot be trusted any more, `error()` says why.
class PacketCutter {
public:
    static constexpr std::uint32_t kSaneSize = 16U * 1024U * 1024U;

    void feed(const Bytes& bytes);
    std::optional<Packet> next();

    const std::string& error() const { return mError; }

    /// Bytes of a packet that is not whole yet, or from the error on.
    std::size_t pending() const { return mBuffer.size() - mStart; }

    Bytes rest() const { return part(mBuffer, mStart, pending()); }

private:
    Bytes mBuffer;
    std::size_t mStart = 0;
    std::string mError;
};

} // namespace oracle
