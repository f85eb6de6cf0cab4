// Packets with a protection context on either side of the framing.

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "protocol/safety_data_deal.h"
#include "support/log_capture.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <utility>
#include <vector>

using namespace support;
using oracle::Bytes;
using oracle::encodePacket;

namespace {

using Block = std::array<std::uint8_t, kAesBlockSize>;

std::shared_ptr<SafetyDataDeal> context() {
    static constexpr Block key = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    static constexpr Block iv = {9, 9, 9};
    return SafetyDataDeal::create(key, iv, iv);
}

/// No protection at all, so that a test can write messages by hand.
std::shared_ptr<SafetyDataDeal> plainContext() {
    auto plain = context();
    plain->mEncryptOn = plain->mBlockPad = plain->mIntegrityOn = false;
    return plain;
}

struct Pair {
    Pair() {
        sender.setStream(&stream);
        sender.setSafetyDataDeal(context());
        receiver.setSafetyDataDeal(context());
    }

    void transfer() {
        for (const OBufList& write : stream.writes) {
            receiver.DepackPacket(write);
        }
        stream.writes.clear();
    }

    RecordingSocket stream;
    CtrlProtocol sender;
    RecordingProtocol receiver;
};

} // namespace

TEST(ProtectedPackets, PayloadIsProtectedOnTheWayAndPlainAtTheEnd) {
    Pair pair;
    pair.sender.sendCommand(34, 5, chainOfPieces(oracle::bytesOf("a payload in pieces"), 4));
    const oracle::Packet sent = pair.stream.packets().at(0);
    EXPECT_EQ(sent.payload.size(), 9U + 32U); // header of the protected message, two blocks
    EXPECT_EQ(Bytes(sent.payload.begin(), sent.payload.begin() + 4), (Bytes{0, 7, 1, 0xE0}));
    pair.transfer();
    EXPECT_EQ(pair.receiver.packets(),
              (std::vector<oracle::Packet>{{0x24, 34, 5, oracle::bytesOf("a payload in pieces")}}));
}

TEST(ProtectedPackets, TheHeadersSizeCountsTheProtectedBytes) {
    Pair pair;
    pair.sender.sendCommand(34, 5, chainOf({1}));
    const Bytes written = bytesOf(pair.stream.writes.at(0));
    EXPECT_EQ(written.size(), 9U + 25U);
    EXPECT_EQ(written[8], 25);
}

TEST(ProtectedPackets, EmptyPayloadIsProtectedTooAndArrivesAsNull) {
    Pair pair;
    pair.sender.sendCommand(34, 5, {});
    EXPECT_EQ(pair.stream.packets().at(0).payload.size(), 25U);
    pair.transfer();
    ASSERT_EQ(pair.receiver.received.size(), 1U);
    EXPECT_TRUE(pair.receiver.received[0].nullPayload);
}

TEST(ProtectedPackets, ManyPacketsFollowEachOtherInOneChain) {
    Pair pair;
    for (std::uint16_t seq = 0; seq < 50; ++seq) {
        pair.sender.sendCommand(34, seq, chainOf(Bytes(seq, static_cast<std::uint8_t>(seq))));
    }
    pair.transfer();
    ASSERT_EQ(pair.receiver.received.size(), 50U);
    for (std::uint16_t seq = 0; seq < 50; ++seq) {
        EXPECT_EQ(pair.receiver.received[seq].payload, Bytes(seq, static_cast<std::uint8_t>(seq)));
    }
}

TEST(ProtectedPackets, PacketThatFailsItsIntegrityCheckIsDroppedAndTheNextOneIsDelivered) {
    RecordingSocket stream;
    CtrlProtocol sender;
    sender.setStream(&stream);
    auto protection = context();
    protection->mEncryptOn = false; // each packet can be read by itself
    sender.setSafetyDataDeal(protection);
    sender.sendCommand(34, 1, chainOf({1, 1, 1}));
    sender.sendCommand(34, 2, chainOf({2, 2, 2}));
    Bytes bytes = oracle::join({bytesOf(stream.writes[0]), bytesOf(stream.writes[1])});
    bytes[9 + 9] ^= 1; // the first data byte of the first packet
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(context());
    LogCapture log;
    receiver.feed(bytes);
    const std::vector<LogLine> lines = log.lines();
    EXPECT_EQ(receiver.packets(), (std::vector<oracle::Packet>{{0x24, 34, 2, {2, 2, 2}}}));
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), (LogLine{'E', "Sonvia_Default", "CtrlProtocol::DepackPacket", 0,
                                     "cmdType:Notify size:25 decryptData failed"}));
}

TEST(ProtectedPackets, PlainPacketsAreDroppedByAProtectedReceiverWithOneLineEach) {
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(context());
    LogCapture log;
    receiver.feed(oracle::join({encodePacket(65504, 1, {}), encodePacket(35, 2, {1, 2})}));
    std::vector<std::string> texts;
    for (const LogLine& line : log.lines()) {
        if (line.function == "CtrlProtocol::DepackPacket") {
            texts.push_back(line.text);
        }
    }
    EXPECT_TRUE(receiver.received.empty());
    EXPECT_EQ(texts, (std::vector<std::string>{"cmdType:65504 is unknown size:0 decryptData failed",
                                               "cmdType:Notify_dummy_Ack size:2 decryptData failed"}));
}

TEST(ProtectedPackets, PlainPayloadsThatBeginWithAKnownKeyAreDroppedHoweverLong) {
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(context());
    LogCapture quiet;
    for (const char* key :
         {"accountID", "exitAudioProjection", "StopSonviaAudioService", "player-state", "first-audiopcm",
          "buffering-start", "buffering-end", "phone-name", "change-mode"}) {
        receiver.feed(encodePacket(34, 1, oracle::encodeInt(key, 1)));
        for (const std::size_t size : {100U, 5000U, 70000U}) {
            receiver.feed(encodePacket(34, 1, oracle::encodeText(key, std::string(size, 'x'))));
        }
    }
    EXPECT_TRUE(receiver.received.empty());
}

TEST(ProtectedPackets, PlainDeviceInformationIsDroppedUnlessItIsLongerThanItCanBe) {
    constexpr std::size_t kMaxLength =
        12 + 42 + 6 * (6 + 256); // six texts of 256 bytes, their keys, the outer entry
    const auto taken = [](std::size_t size) {
        RecordingProtocol receiver;
        receiver.setSafetyDataDeal(context());
        receiver.feed(
            encodePacket(34, 1, oracle::encode({"KORUInfo", oracle::kTypeNested, Bytes(size - 12)})));
        return !receiver.received.empty();
    };
    LogCapture quiet;
    for (std::size_t size = 12; size <= kMaxLength; ++size) {
        EXPECT_FALSE(taken(size)) << size;
    }
    EXPECT_FALSE(taken(2124));
    EXPECT_TRUE(taken(2125));
}

TEST(ProtectedPackets, APlainPayloadWithAnEmptyFirstKeyMayPassForAMessage) {
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(context());
    const Bytes rest = oracle::encodeInt("change-mode", 1);
    receiver.feed(encodePacket(34, 1, oracle::join({oracle::encodeRaw("", 1, {0}), rest})));
    EXPECT_EQ(receiver.packets(), (std::vector<oracle::Packet>{{0x24, 34, 1, rest}}));
}

TEST(ProtectedPackets, LengthHandedUpIsThatOfThePlainPayload) {
    RecordingProtocol receiver;
    receiver.setSafetyDataDeal(plainContext());
    receiver.feed(encodePacket(34, 1, {0, 1, 0, 7, 8})); // the shortest header: no flags
    ASSERT_EQ(receiver.received.size(), 1U);
    EXPECT_EQ(receiver.received[0].payload, (Bytes{7, 8}));
    EXPECT_EQ(+receiver.received[0].header.size, 5U);
}

TEST(ProtectedPackets, TheCallersBytesAreNotProtectedInPlace) {
    RecordingSocket stream;
    CtrlProtocol sender;
    sender.setStream(&stream);
    sender.setSafetyDataDeal(context());
    const OBufList payload = chainOf({1, 2, 3});
    sender.sendCommand(34, 1, payload);
    EXPECT_EQ(bytesOf(payload), (Bytes{1, 2, 3}));
}

TEST(ProtectedPackets, ThePayloadIsReleasedWhileTheStreamStillHoldsTheProtectedBytes) {
    Pair pair;
    OBufList payload = chainOfPieces(oracle::bytesOf("in pieces"), 4);
    std::vector<std::weak_ptr<ORefBuffer>> blocks;
    for (const OBufView& piece : payload) {
        blocks.push_back(piece.buffer);
    }
    pair.sender.sendCommand(34, 1, std::move(payload));
    ASSERT_EQ(pair.stream.writes.size(), 1U);
    for (const std::weak_ptr<ORefBuffer>& block : blocks) {
        EXPECT_TRUE(block.expired());
    }
}

TEST(ProtectedPackets, TakingTheContextOffMakesPacketsPlainAgain) {
    Pair pair;
    pair.sender.setSafetyDataDeal(nullptr);
    pair.receiver.setSafetyDataDeal(nullptr);
    pair.sender.sendCommand(34, 1, chainOf({1}));
    EXPECT_EQ(pair.stream.packets(), (std::vector<oracle::Packet>{{0x24, 34, 1, {1}}}));
    pair.transfer();
    EXPECT_EQ(pair.receiver.packets(), (std::vector<oracle::Packet>{{0x24, 34, 1, {1}}}));
}

TEST(ProtectedPackets, WithoutAStreamTheChainDoesNotAdvance) {
    Pair pair;
    pair.sender.setStream(nullptr);
    pair.sender.sendCommand(34, 1, chainOf({1, 2, 3}));
    pair.sender.setStream(&pair.stream);
    pair.sender.sendCommand(34, 2, chainOf({4, 5, 6}));
    pair.transfer();
    EXPECT_EQ(pair.receiver.packets(), (std::vector<oracle::Packet>{{0x24, 34, 2, {4, 5, 6}}}));
}
