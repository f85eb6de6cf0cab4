// A peer that announces much and delivers little: what is kept grows with what has arrived and nothing else.

#include "oracle/packets.h"
#include "support/heap.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <vector>

using namespace support;
using oracle::Bytes;

namespace {

/// Remembers the blocks that reads came in, without keeping them.
class ReadBlocks {
public:
    OBufList read(const std::uint8_t* bytes, std::size_t size) {
        OBufView view = readOf(bytes, size);
        mBlocks.push_back(view.buffer);
        return OBufList(1, std::move(view));
    }

    std::size_t alive() const {
        return static_cast<std::size_t>(std::count_if(mBlocks.begin(), mBlocks.end(),
                                                      [](const auto& block) { return !block.expired(); }));
    }

private:
    std::vector<std::weak_ptr<ORefBuffer>> mBlocks;
};

const Bytes kFourGigabyteHeader = {0x24, 0, 34, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF};

} // namespace

TEST(DepackHostile, HeaderThatPromisesFourGigabytesAllocatesNothingForThem) {
    RecordingProtocol protocol;
    const std::size_t before = heapInUse();
    protocol.feed(kFourGigabyteHeader);
    protocol.feed(Bytes(1000, 7));
    EXPECT_LE(heapInUse(), before + 128 * 1024);
    EXPECT_TRUE(protocol.received.empty());
}

TEST(DepackHostile, BytesThatDripInBlocksOfTheirOwnDoNotKeepThoseBlocks) {
    constexpr std::size_t kCount = 20000;
    RecordingProtocol protocol;
    ReadBlocks blocks;
    const std::size_t before = heapInUse();
    for (const std::uint8_t byte : kFourGigabyteHeader) {
        protocol.DepackPacket(blocks.read(&byte, 1));
    }
    for (std::size_t index = 0; index < kCount; ++index) {
        const auto byte = static_cast<std::uint8_t>(index);
        protocol.DepackPacket(blocks.read(&byte, 1));
    }
    EXPECT_EQ(blocks.alive(), 0U);
    // The weak references of this test keep their counters: less than 100 bytes each.
    EXPECT_LE(heapInUse(), before + kCount * 100 + 4 * 64 * 1024);
    EXPECT_TRUE(protocol.received.empty());
}

// So they come where the frames between processes are cut small: libuv asks for a block of what is left of the frame.
TEST(DepackHostile, BytesThatDripInBlocksOfOneByteAreCollected) {
    constexpr std::size_t kCount = 100000;
    RecordingProtocol protocol;
    protocol.feed(kFourGigabyteHeader);
    std::vector<std::weak_ptr<ORefBuffer>> blocks;
    for (std::size_t index = 0; index < kCount; ++index) {
        const auto byte = static_cast<std::uint8_t>(index);
        OBufView view = OBufView::make(&byte, 1);
        if (index % 1000 == 0) {
            blocks.push_back(view.buffer);
        }
        protocol.DepackPacket(OBufList(1, std::move(view)));
    }
    for (const auto& block : blocks) {
        EXPECT_TRUE(block.expired());
    }
}

TEST(DepackHostile, MemoryKeptIsAFewTimesWhatArrivedWhateverTheSizesOfTheReads) {
    std::mt19937 random(20211012);
    const std::vector<std::size_t> sizes = {1, 3, 100, 5000, 16383, 16384, 16385, 40000, 65536};
    const Bytes filler(65536, 0x5A);
    RecordingProtocol protocol;
    protocol.feed(kFourGigabyteHeader);
    ReadBlocks blocks;
    const std::size_t before = heapInUse();
    std::size_t arrived = 0;
    for (int round = 0; round < 300; ++round) {
        const std::size_t size = sizes[random() % sizes.size()];
        protocol.DepackPacket(blocks.read(filler.data(), size));
        arrived += size;
        ASSERT_LE(blocks.alive() * 65536, arrived * 8 + 65536);
        ASSERT_LE(heapInUse(), before + arrived * 10 + 256 * 1024);
    }
}

TEST(DepackHostile, LargeReadsAreSharedAndNotCopied) {
    RecordingProtocol protocol;
    ReadBlocks blocks;
    const Bytes filler(65536, 1);
    protocol.feed(kFourGigabyteHeader);
    for (int round = 0; round < 5; ++round) {
        protocol.DepackPacket(blocks.read(filler.data(), filler.size()));
    }
    EXPECT_EQ(blocks.alive(), 5U);
}

// Work that grew with what is kept already would make this last for minutes, on the thread of the loop.
TEST(DepackHostile, PacketOfManyThousandReadsCostsEachReadOnlyItself) {
    constexpr std::uint32_t kReads = 200000;
    const Bytes payload(10, 0x5A);
    const OBufView block = OBufView::make(payload.data(), payload.size());
    RecordingProtocol protocol;
    for (int packet = 0; packet < 2; ++packet) {
        const Bytes header = oracle::join({{0x24, 0, 34, 0, 1}, oracle::bigEndian(10 * kReads, 4)});
        for (const std::uint8_t byte : header) {
            protocol.feed({byte});
        }
        for (std::uint32_t read = 0; read < kReads; ++read) {
            protocol.DepackPacket(OBufList(1, block));
        }
    }
    ASSERT_EQ(protocol.received.size(), 2U);
    EXPECT_TRUE(protocol.received[0].payload == Bytes(10 * kReads, 0x5A));
    EXPECT_TRUE(protocol.received[1].payload == Bytes(10 * kReads, 0x5A));
}

TEST(DepackHostile, BlocksAreLetGoWhenTheirPacketIsComplete) {
    RecordingProtocol protocol;
    ReadBlocks blocks;
    const Bytes stream = oracle::encodePacket(34, 1, Bytes(200000, 3));
    for (std::size_t at = 0; at < stream.size(); at += 65536) {
        protocol.DepackPacket(
            blocks.read(stream.data() + at, std::min<std::size_t>(65536, stream.size() - at)));
    }
    EXPECT_EQ(protocol.received.size(), 1U);
    EXPECT_EQ(blocks.alive(), 0U);
}

TEST(DepackHostile, DrippedAndCrowdedReadsInAnyMixtureGiveTheSamePackets) {
    std::mt19937 random(4711);
    Bytes stream;
    for (std::uint16_t seq = 0; seq < 60; ++seq) {
        Bytes payload(random() % 40000);
        std::generate(payload.begin(), payload.end(),
                      [&random] { return static_cast<std::uint8_t>(random()); });
        const Bytes next = oracle::encodePacket(34, seq, payload);
        stream.insert(stream.end(), next.begin(), next.end());
    }
    Bytes copy = stream;
    const std::vector<oracle::Packet> expected = oracle::takePackets(copy);
    for (int round = 0; round < 10; ++round) {
        RecordingProtocol protocol;
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t most = random() % 3 == 0 ? 20 : 65536;
            const std::size_t size = std::min(1 + random() % most, stream.size() - at);
            protocol.DepackPacket(OBufList(1, readOf(stream.data() + at, size)));
            at += size;
        }
        ASSERT_TRUE(protocol.packets() == expected) << "round " << round;
    }
}

TEST(DepackHostile, RandomBytesNeverHarm) {
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        RecordingProtocol protocol;
        for (int chunk = 0; chunk < 20; ++chunk) {
            Bytes bytes(random() % 64);
            // Few values, so that sizes are small now and then and packets complete.
            std::generate(bytes.begin(), bytes.end(),
                          [&random] { return static_cast<std::uint8_t>(random() % 3); });
            protocol.feed(bytes);
        }
        for (const Received& packet : protocol.received) {
            ASSERT_EQ(packet.payload.size(), +packet.header.size);
        }
    }
}
