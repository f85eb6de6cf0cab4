#include "wire.h"

#include <gtest/gtest.h>

namespace standin {
namespace {

using namespace std::string_literals;

const std::string kPacketWithOneInt = "$\0\x22\0\x07\0\0\0\x07\x01k\x06\0\0\0\x05"s;

TEST(StandinWire, NumbersAreWrittenMostSignificantByteFirst) {
    std::string out;
    putNumber(out, 0x0102030405060708U, 8);
    putNumber(out, 0xABCD, 2);
    EXPECT_EQ(out, "\x01\x02\x03\x04\x05\x06\x07\x08\xAB\xCD"s);
    EXPECT_EQ(getNumber("\x01\x02\x03"s), 0x010203U);
}

TEST(StandinWire, PacketIsCutTheSameWayAtEverySplit) {
    const std::string stream = kPacketWithOneInt + kPacketWithOneInt;
    for (std::size_t split = 0; split <= stream.size(); ++split) {
        PacketCutter cutter;
        int packets = 0;
        for (const std::string& part : {stream.substr(0, split), stream.substr(split)}) {
            cutter.feed(part);
            while (const std::optional<Packet> packet = cutter.next()) {
                ++packets;
                EXPECT_EQ(packet->header.command, 34);
                EXPECT_EQ(packet->header.seq, 7);
                EXPECT_EQ(packet->payload, kPacketWithOneInt.substr(kHeaderSize));
            }
        }
        EXPECT_EQ(packets, 2) << "split at " << split;
        EXPECT_EQ(cutter.pending(), 0U);
    }
}

TEST(StandinWire, WrongMagicByteBreaksTheStreamForGood) {
    PacketCutter cutter;
    cutter.feed("%\0\x22\0\0\0\0\0\0"s);
    EXPECT_FALSE(cutter.next());
    EXPECT_EQ(cutter.error(), "magic byte is 37");
    cutter.feed(kPacketWithOneInt);
    EXPECT_FALSE(cutter.next());
}

TEST(StandinWire, AbsurdSizeBreaksTheStream) {
    PacketCutter cutter;
    cutter.feed("$\0\x22\0\0\x7F\0\0\0"s);
    EXPECT_FALSE(cutter.next());
    EXPECT_EQ(cutter.error(), "announced size is 2130706432");
}

TEST(StandinWire, EntriesOfEveryLayoutAreDecoded) {
    const DecodedEntries decoded = decodeEntries("\x01"
                                                 "a\x03\x09"
                                                 "\x01"
                                                 "b\x05\x01\x02"
                                                 "\x01"
                                                 "c\x0B\0\0\0\0\0\0\0\x01"
                                                 "\x01"
                                                 "d\x14\0\0\0\x02hi"
                                                 "\x01"
                                                 "e\x0E\0\x04\x01x\x03\x01"s);
    EXPECT_EQ(decoded.error, "");
    ASSERT_EQ(decoded.entries.size(), 5U);
    EXPECT_EQ(decoded.entries[1].raw, "\x01\x02"s);
    EXPECT_EQ(decoded.entries[3].raw, "hi");
    ASSERT_EQ(decoded.entries[4].nested.size(), 1U);
    EXPECT_EQ(decoded.entries[4].nested[0].key, "x");
}

TEST(StandinWire, EveryTruncationIsReported) {
    const std::string payload = "\x03"
                                "key\x14\0\0\0\x05hello"s;
    for (std::size_t length = 1; length < payload.size(); ++length) {
        EXPECT_NE(decodeEntries(payload.substr(0, length)).error, "") << "length " << length;
    }
    EXPECT_EQ(decodeEntries(payload).error, "");
    EXPECT_EQ(decodeEntries("").error, "");
}

TEST(StandinWire, TypeWithoutAValueLayoutIsReported) {
    EXPECT_EQ(decodeEntries("\x01k\x0F"s).error, "type 15 has no value layout");
    EXPECT_EQ(decodeEntries("\x01k\xFF"s).error, "type 255 has no value layout");
}

TEST(StandinWire, MistakeInsideANestedEntryIsReportedWithItsKey) {
    EXPECT_EQ(decodeEntries("\x05outer\x0E\0\x02\x09x"s).error,
              "inside \"outer\": key needs 9 bytes, 1 left");
}

} // namespace
} // namespace standin
