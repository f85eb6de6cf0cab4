// Received bytes cut back into packets.

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

using namespace support;
using oracle::Bytes;
using oracle::encodePacket;

namespace {

Bytes payloadOf(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<std::uint8_t>(index * 7 + index / 251);
    }
    return bytes;
}

/// Packets of many kinds: empty, tiny, ordinary, unknown command, highest numbers, another magic.
Bytes validStream() {
    return oracle::join({encodePacket(34, 0, oracle::encodeInt("player-state", 2)), encodePacket(1, 1, {}),
                         encodePacket(65504, 65535, {0}), encodePacket(34, 2, payloadOf(40)),
                         encodePacket(65535, 256, {}), encodePacket(0, 3, payloadOf(3), 0xFF)});
}

} // namespace

TEST(Depack, HeaderFieldsAreBigEndian) {
    RecordingProtocol protocol;
    protocol.feed({0x24, 0x12, 0x34, 0xAB, 0xCD, 0x00, 0x00, 0x00, 0x02, 0x55, 0x66});
    ASSERT_EQ(protocol.received.size(), 1U);
    const Received& got = protocol.received[0];
    EXPECT_EQ(got.header.magic, 0x24);
    EXPECT_EQ(+got.header.cmdType, 0x1234);
    EXPECT_EQ(+got.header.seq, 0xABCD);
    EXPECT_EQ(+got.header.size, 2U);
    EXPECT_EQ(got.payload, (Bytes{0x55, 0x66}));
}

TEST(Depack, ChunkOfEightBytesIsKeptUntilTheRestArrives) {
    const Bytes whole = encodePacket(34, 7, {1, 2, 3});
    RecordingProtocol protocol;
    protocol.feed({whole.begin(), whole.begin() + 8});
    EXPECT_TRUE(protocol.received.empty());
    protocol.feed({whole.begin() + 8, whole.end()});
    EXPECT_EQ(protocol.packets(), (std::vector<oracle::Packet>{{0x24, 34, 7, {1, 2, 3}}}));
}

TEST(Depack, HeaderAndBodyMayComeInSeparateChunks) {
    RecordingProtocol protocol;
    protocol.feed({0x24, 0, 34, 0, 5, 0, 0, 0, 2});
    EXPECT_TRUE(protocol.received.empty());
    protocol.feed({8});
    EXPECT_TRUE(protocol.received.empty());
    protocol.feed({9});
    EXPECT_EQ(protocol.packets(), (std::vector<oracle::Packet>{{0x24, 34, 5, {8, 9}}}));
}

TEST(Depack, TwoPacketsInOneChunkComeInOrder) {
    RecordingProtocol protocol;
    protocol.feed(oracle::join({encodePacket(34, 1, {1}), encodePacket(35, 2, {2, 2})}));
    EXPECT_EQ(protocol.packets(), (std::vector<oracle::Packet>{{0x24, 34, 1, {1}}, {0x24, 35, 2, {2, 2}}}));
}

TEST(Depack, EverySplitIntoTwoChunksGivesTheSamePackets) {
    Bytes stream = validStream();
    Bytes copy = stream;
    const std::vector<oracle::Packet> expected = oracle::takePackets(copy);
    ASSERT_EQ(expected.size(), 6U);
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        RecordingProtocol protocol;
        const auto middle = stream.begin() + static_cast<std::ptrdiff_t>(cut);
        protocol.feed({stream.begin(), middle});
        protocol.feed({middle, stream.end()});
        ASSERT_EQ(protocol.packets(), expected) << "cut at " << cut;
    }
}

TEST(Depack, EverySplitIntoThreeChunksGivesTheSamePackets) {
    const Bytes stream =
        oracle::join({encodePacket(34, 1, {1, 2, 3}), encodePacket(2, 2, {}), encodePacket(34, 3, {4})});
    Bytes copy = stream;
    const std::vector<oracle::Packet> expected = oracle::takePackets(copy);
    for (std::ptrdiff_t first = 0; first <= std::ssize(stream); ++first) {
        for (std::ptrdiff_t second = first; second <= std::ssize(stream); ++second) {
            RecordingProtocol protocol;
            protocol.feed({stream.begin(), stream.begin() + first});
            protocol.feed({stream.begin() + first, stream.begin() + second});
            protocol.feed({stream.begin() + second, stream.end()});
            ASSERT_EQ(protocol.packets(), expected) << first << ", " << second;
        }
    }
}

TEST(Depack, EveryFixedChunkSizeGivesTheSamePackets) {
    const Bytes stream = validStream();
    Bytes copy = stream;
    const std::vector<oracle::Packet> expected = oracle::takePackets(copy);
    for (std::size_t size = 1; size <= stream.size(); ++size) { // 1: split byte by byte
        RecordingProtocol protocol;
        for (OBufView& view : chainOfPieces(stream, size)) {
            protocol.DepackPacket(OBufList(1, view));
        }
        ASSERT_EQ(protocol.packets(), expected) << "chunks of " << size;
    }
}

TEST(Depack, OneChunkOfManyPiecesGivesTheSamePackets) {
    const Bytes stream = validStream();
    Bytes copy = stream;
    const std::vector<oracle::Packet> expected = oracle::takePackets(copy);
    for (std::size_t size = 1; size <= stream.size(); ++size) {
        RecordingProtocol protocol;
        protocol.DepackPacket(chainOfPieces(stream, size));
        ASSERT_EQ(protocol.packets(), expected) << "pieces of " << size;
    }
}

TEST(Depack, EmptyChunksAndEmptyPiecesChangeNothing) {
    const Bytes whole = encodePacket(34, 7, {1, 2});
    RecordingProtocol protocol;
    protocol.DepackPacket({});
    protocol.feed({whole.begin(), whole.begin() + 4});
    protocol.DepackPacket({});
    OBufList chunk(1);
    chunk.append(chainOf({whole.begin() + 4, whole.end()}));
    chunk.push_back({});
    protocol.DepackPacket(std::move(chunk));
    EXPECT_EQ(protocol.packets(), (std::vector<oracle::Packet>{{0x24, 34, 7, {1, 2}}}));
}

TEST(Depack, ThousandPacketsInOneChunkComeInOrder) {
    Bytes stream;
    for (std::uint16_t seq = 0; seq < 1000; ++seq) {
        const Bytes next = encodePacket(34, seq, payloadOf(seq % 50U));
        stream.insert(stream.end(), next.begin(), next.end());
    }
    RecordingProtocol protocol;
    protocol.feed(stream);
    ASSERT_EQ(protocol.received.size(), 1000U);
    for (std::uint16_t seq = 0; seq < 1000; ++seq) {
        EXPECT_EQ(+protocol.received[seq].header.seq, seq);
        EXPECT_EQ(protocol.received[seq].payload, payloadOf(seq % 50U));
    }
}

TEST(Depack, PacketOfSixteenMegabytesArrivesWhole) {
    const Bytes payload = payloadOf(16 * 1024 * 1024);
    const Bytes stream = oracle::join({encodePacket(34, 1, payload), encodePacket(34, 2, {9})});
    RecordingProtocol protocol;
    for (OBufView& read : chainOfPieces(stream, 65536)) {
        protocol.DepackPacket(OBufList(1, read));
    }
    ASSERT_EQ(protocol.received.size(), 2U);
    EXPECT_TRUE(protocol.received[0].payload == payload);
    EXPECT_EQ(protocol.received[1].payload, Bytes{9});
}

TEST(Depack, MagicOtherThanDollarIsAccepted) {
    for (int magic = 0; magic < 256; ++magic) {
        RecordingProtocol protocol;
        protocol.feed(encodePacket(34, 1, {5}, static_cast<std::uint8_t>(magic)));
        ASSERT_EQ(protocol.received.size(), 1U);
        EXPECT_EQ(protocol.received[0].header.magic, magic);
    }
}

TEST(Depack, SizeZeroGivesANullPayload) {
    RecordingProtocol protocol;
    protocol.feed(encodePacket(34, 1, {}));
    ASSERT_EQ(protocol.received.size(), 1U);
    EXPECT_TRUE(protocol.received[0].nullPayload);
    EXPECT_EQ(+protocol.received[0].header.size, 0U);
}

TEST(Depack, SizeZeroGivesANullPayloadBetweenFullPacketsToo) {
    RecordingProtocol protocol;
    protocol.feed(oracle::join({encodePacket(1, 1, {1}), encodePacket(2, 2, {}), encodePacket(3, 3, {3})}));
    ASSERT_EQ(protocol.received.size(), 3U);
    EXPECT_FALSE(protocol.received[0].nullPayload);
    EXPECT_TRUE(protocol.received[1].nullPayload);
    EXPECT_FALSE(protocol.received[2].nullPayload);
}

TEST(Depack, BodyInsideOnePieceIsHandedUpInPlace) {
    const OBufList chunk =
        chainOf(oracle::join({encodePacket(34, 1, {1, 2, 3}), encodePacket(34, 2, {4, 5})}));
    const std::uint8_t* start = chunk.front().data();
    RecordingProtocol protocol;
    protocol.DepackPacket(chunk);
    EXPECT_EQ(protocol.payloadPlaces, (std::vector<const std::uint8_t*>{start + 9, start + 21}));
}

TEST(Depack, BodyInsideALaterPieceIsHandedUpInPlaceToo) {
    OBufList chunk = chainOf(encodePacket(34, 1, {1, 2, 3}));
    chunk.append(chainOf(encodePacket(34, 2, {4, 5})));
    const Bytes third = encodePacket(34, 3, {6, 7, 8}); // the header ends one piece, the body is another one
    chunk.append(chainOf({third.begin(), third.begin() + 9}));
    chunk.append(chainOf({third.begin() + 9, third.end()}));
    const std::uint8_t* second = std::next(chunk.begin())->data();
    const std::uint8_t* last = chunk.back().data();
    RecordingProtocol protocol;
    protocol.DepackPacket(chunk);
    ASSERT_EQ(protocol.payloadPlaces.size(), 3U);
    EXPECT_EQ(protocol.payloadPlaces[1], second + 9);
    EXPECT_EQ(protocol.payloadPlaces[2], last);
}

TEST(Depack, PacketThatAHandlerFeedsIsDeliveredBeforeThoseThatFollow) {
    CtrlProtocol protocol;
    std::vector<oracle::Packet> packets;
    protocol.setHandler([&](const CtrlPacketHeader* header, const std::uint8_t* payload,
                            std::uint32_t length) {
        packets.push_back({header->magic, header->cmdType, header->seq, Bytes(payload, payload + length)});
        if (header->seq == 1) {
            protocol.DepackPacket(chainOf(encodePacket(36, 7, {7, 7, 7})));
            EXPECT_EQ(+header->seq, 1); // still this packet's
            EXPECT_EQ(+header->size, 2U);
        }
    });
    protocol.DepackPacket(chainOf(oracle::join({encodePacket(34, 1, {1, 1}), encodePacket(35, 2, {2})})));
    EXPECT_EQ(packets, (std::vector<oracle::Packet>{
                           {0x24, 34, 1, {1, 1}}, {0x24, 36, 7, {7, 7, 7}}, {0x24, 35, 2, {2}}}));
}

TEST(Depack, WithoutAHandlerPacketsAreDropped) {
    CtrlProtocol protocol;
    protocol.DepackPacket(chainOf(encodePacket(34, 1, {1})));
}

TEST(Depack, TheHandlerGetsEachPacketOfTheBaseProtocol) {
    CtrlProtocol protocol;
    std::vector<oracle::Packet> packets;
    protocol.setHandler([&](const CtrlPacketHeader* header, const std::uint8_t* payload,
                            std::uint32_t length) {
        packets.push_back({header->magic, header->cmdType, header->seq, Bytes(payload, payload + length)});
    });
    protocol.DepackPacket(chainOf(oracle::join({encodePacket(34, 1, {1}), encodePacket(35, 2, {2, 3})})));
    EXPECT_EQ(packets, (std::vector<oracle::Packet>{{0x24, 34, 1, {1}}, {0x24, 35, 2, {2, 3}}}));
}

TEST(Depack, HeaderRecordIsPacked) {
    EXPECT_EQ(sizeof(CtrlPacketHeader), 9U);
    EXPECT_EQ(offsetof(CtrlPacketHeader, cmdType), 1U);
    EXPECT_EQ(offsetof(CtrlPacketHeader, seq), 3U);
    EXPECT_EQ(offsetof(CtrlPacketHeader, size), 5U);
}
