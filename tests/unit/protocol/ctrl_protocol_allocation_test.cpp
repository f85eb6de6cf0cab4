// A packet of many pieces needs one run of memory. When there is none, that packet is lost and nothing else. And what
// keeping the pieces takes: each one's own share, however many wait before it.

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "protocol/payload_index.h"
#include "support/counted_malloc.h"
#include "support/log_capture.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

using namespace support;
using oracle::Bytes;
using oracle::Packet;

namespace {

constexpr std::size_t kPieceSize = 5000; // long enough to be kept as they are

const Packet kLost{0x24, 34, 1, Bytes(50000, 7)};
const Packet kNext{0x24, 34, 2, Bytes(50, 8)};

struct Outcome {
    std::vector<Packet> packets;
    bool reported = false;
    bool outOfObjects = false; ///< not the packet's run was refused, but an object of a few bytes
};

/// Feeds the first packet in pieces with request number `failing` refused, then the second one in peace.
Outcome feedWithFailure(int failing) {
    RecordingProtocol protocol;
    Outcome outcome;
    OBufList pieces =
        chainOfPieces(oracle::encodePacket(kLost.command, kLost.sequence, kLost.payload), kPieceSize);
    LogCapture log;
    try {
        const CountedMalloc refusing(failing);
        protocol.DepackPacket(std::move(pieces));
    } catch (const std::bad_alloc&) {
        outcome.outOfObjects = true;
    }
    for (const LogLine& line : log.lines("Sonvia_Default")) {
        outcome.reported = outcome.reported || line.text == "malloc size:50000 failed";
    }
    protocol.feed(oracle::encodePacket(kNext.command, kNext.sequence, kNext.payload));
    outcome.packets = protocol.packets();
    return outcome;
}

} // namespace

TEST(DepackAllocation, AfterAnAllocationFailureOnlyThatPacketIsLostAndLogged) {
    constexpr int kRequests = 40;
    int lost = 0;
    for (int failing = 1; failing <= kRequests; ++failing) {
        const Outcome outcome = feedWithFailure(failing);
        if (outcome.reported) {
            ++lost;
            EXPECT_EQ(outcome.packets, (std::vector<Packet>{kNext})) << failing;
        } else if (!outcome.outOfObjects) {
            EXPECT_EQ(outcome.packets, (std::vector<Packet>{kLost, kNext})) << failing;
        }
    }
    EXPECT_EQ(lost, 1);
}

namespace {

constexpr int kReads = 2000;

/// What the protocol allocates for the same whole block handed over in `kReads` reads.
int allocationsOfReads(CtrlProtocol& protocol) {
    const OBufView block = OBufView::make("0123456789", 10);
    int allocations = 0;
    for (int read = 0; read < kReads; ++read) {
        OBufList received(1, block);
        CountedMalloc counted;
        protocol.DepackPacket(std::move(received));
        allocations += counted.stop();
    }
    return allocations;
}

} // namespace

TEST(DepackAllocation, WholePacketsInOneReadAndTheirIndexAllocateNothing) {
    class Indexing final : public CtrlProtocol {
    public:
        void onPacket(const CtrlPacketHeader*, const std::uint8_t* payload, std::uint32_t length) override {
            const protocol::PayloadIndex index(payload, length);
            found += index.find("change-mode") != nullptr ? 1 : 0;
        }

        int found = 0;
    };

    const Bytes packet = oracle::encodePacket(34, 1, oracle::encodeInt("change-mode", 3));
    const OBufView read = OBufView::make(oracle::join({packet, packet}).data(), packet.size() * 2);
    Indexing protocol;
    CountedMalloc counted;
    protocol.DepackPacket(OBufList(1, read));
    EXPECT_EQ(counted.stop(), 0);
    EXPECT_EQ(protocol.found, 2);
}

TEST(DepackAllocation, AReadOfAnIncompletePacketIsKeptWithoutKeepingTheEarlierOnesAnew) {
    RecordingProtocol protocol;
    protocol.feed({0x24, 0, 34, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_LE(allocationsOfReads(protocol), 2 * kReads);
}

TEST(DepackAllocation, CompletingAPacketOfManyReadsLeavesNothingThatLaterReadsPayFor) {
    RecordingProtocol protocol;
    protocol.feed({0x24, 0, 34, 0, 1, 0, 0, 0x4E, 0x20}); // 20000: as many bytes as the reads bring
    EXPECT_LE(allocationsOfReads(protocol), 2 * kReads + 10);
    ASSERT_EQ(protocol.received.size(), 1U);
    EXPECT_EQ(protocol.received[0].payload.size(), 20000U);
    protocol.feed({0x24, 0, 34, 0, 2, 0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_LE(allocationsOfReads(protocol), 2 * kReads);
}
