// A packet of many pieces needs one run of memory. When there is none, that packet is lost and nothing else.

#include "unit/protection/counted_malloc.h"
#include "unit/protocol/log_lines.h"
#include "unit/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

using wire::Bytes;
using wire::Packet;

namespace {

constexpr std::size_t kPieceSize = 100;

const Packet kLost{0x24, 34, 1, Bytes(1000, 7)};
const Packet kNext{0x24, 34, 2, Bytes(50, 8)};

struct Outcome {
    std::vector<Packet> packets;
    bool told = false;
    bool outOfObjects = false; ///< not the packet's run was refused, but an object of a few bytes
};

/// Feeds the first packet in pieces with request number `failing` refused, then the second one in peace.
Outcome feedWithFailure(int failing) {
    RecordingProtocol protocol;
    Outcome outcome;
    OBufList pieces = chainOfPieces(wire::packet(kLost.cmdType, kLost.seq, kLost.payload), kPieceSize);
    LogCapture log;
    try {
        const CountedMalloc refusing(failing);
        protocol.DepackPacket(std::move(pieces));
    } catch (const std::bad_alloc&) {
        outcome.outOfObjects = true;
    }
    for (const LogLine& line : log.lines("Sonvia_Default")) {
        outcome.told = outcome.told || line.text == "malloc size:1000 failed";
    }
    protocol.feed(wire::packet(kNext.cmdType, kNext.seq, kNext.payload));
    outcome.packets = protocol.packets();
    return outcome;
}

} // namespace

TEST(DepackAllocation, WithoutMemoryForAPacketOnlyThatPacketIsLostAndTheLogSaysSo) {
    constexpr int kRequests = 40;
    int lost = 0;
    for (int failing = 1; failing <= kRequests; ++failing) {
        const Outcome outcome = feedWithFailure(failing);
        if (outcome.told) {
            ++lost;
            EXPECT_EQ(outcome.packets, (std::vector<Packet>{kNext})) << failing;
        } else if (!outcome.outOfObjects) {
            EXPECT_EQ(outcome.packets, (std::vector<Packet>{kLost, kNext})) << failing;
        }
    }
    EXPECT_EQ(lost, 1);
}
