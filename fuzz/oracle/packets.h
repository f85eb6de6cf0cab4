#pragma once

#include "oracle/bytes.h"

#include <cstdint>
#include <vector>

namespace oracle {

struct Packet {
    std::uint8_t magic = 0;
    std::uint16_t command = 0;
    std::uint16_t sequence = 0;
    std::uint32_t size = 0; ///< as it stands in the header
    Bytes payload;

    friend bool operator==(const Packet&, const Packet&) = default;
};

/// Takes every whole packet off the front of `stream`; what is left is the start of one that is not whole yet.
std::vector<Packet> takePackets(Bytes& stream);

/// A packet as it is sent.
Bytes encodePacket(std::uint16_t command, std::uint16_t sequence, const Bytes& payload);

} // namespace oracle
