#include "oracle/packets.h"

#include <gtest/gtest.h>

#include <string>

namespace oracle {
namespace {

using namespace std::string_literals;

const Bytes kPacketWithOneInt = bytesOf("$\0\x22\0\x07\0\0\0\x07\x01k\x06\0\0\0\x05"s);

TEST(OraclePackets, PacketIsWrittenMostSignificantByteFirst) {
    EXPECT_EQ(encodePacket(34, 7, bytesOf("\x01k\x06\0\0\0\x05"s)), kPacketWithOneInt);
    EXPECT_EQ(encodeHeader('%', 0x1234, 0x5678, 0x9ABCDEF0), bytesOf("%\x12\x34\x56\x78\x9A\xBC\xDE\xF0"));
}

TEST(OraclePackets, PacketIsCutTheSameWayAtEverySplit) {
    const Bytes stream = join({kPacketWithOneInt, kPacketWithOneInt});
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        PacketCutter cutter;
        int packets = 0;
        for (const Bytes& piece : {part(stream, 0, split), part(stream, split, stream.size() - split)}) {
            cutter.feed(piece);
            while (const std::optional<Packet> packet = cutter.next()) {
                ++packets;
                EXPECT_EQ(packet->command, 34);
                EXPECT_EQ(packet->sequence, 7);
                EXPECT_EQ(packet->payload, part(kPacketWithOneInt, kHeaderSize, 7));
            }
        }
        EXPECT_EQ(packets, 2) << "split at " << split;
        EXPECT_EQ(cutter.pending(), 0U);
        Bytes start = part(stream, 0, split);
        EXPECT_EQ(takePackets(start).size(), split / kPacketWithOneInt.size());
        EXPECT_EQ(start.size(), split % kPacketWithOneInt.size());
    }
}

TEST(OraclePackets, WrongMagicByteBreaksTheStreamForGood) {
    PacketCutter cutter;
    cutter.feed(bytesOf("%\0\x22\0\0\0\0\0\0"s));
    EXPECT_FALSE(cutter.next());
    EXPECT_EQ(cutter.error(), "magic byte is 37");
    cutter.feed(kPacketWithOneInt);
    EXPECT_FALSE(cutter.next());
}

TEST(OraclePackets, AbsurdSizeBreaksTheStream) {
    PacketCutter cutter;
    cutter.feed(bytesOf("$\0\x22\0\0\x7F\0\0\0"s));
    EXPECT_FALSE(cutter.next());
    EXPECT_EQ(cutter.error(), "announced size is 2130706432");
}

} // namespace
} // namespace oracle
