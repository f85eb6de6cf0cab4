// Commands packed and written to a stream.

#include "oracle/packets.h"
#include "protocol/key_value.h"
#include "support/log_capture.h"
#include "support/protocol/protocol_support.h"

#include <gtest/gtest.h>

#include <memory>

using namespace support;
using oracle::Bytes;

TEST(SendCommand, EmptyPayloadWritesExactlyNineBytes) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protocol.sendCommand(0x2001, 0x0102, {});
    ASSERT_EQ(stream.writes.size(), 1U);
    EXPECT_EQ(bytesOf(stream.writes[0]), (Bytes{0x24, 0x20, 0x01, 0x01, 0x02, 0, 0, 0, 0}));
}

TEST(SendCommand, HeaderAndPayloadGoOutInOneWrite) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protocol.sendCommand(34, 0xFFFE, chainOf({1, 2, 3}));
    ASSERT_EQ(stream.writes.size(), 1U);
    EXPECT_EQ(bytesOf(stream.writes[0]), (Bytes{0x24, 0, 34, 0xFF, 0xFE, 0, 0, 0, 3, 1, 2, 3}));
}

TEST(SendCommand, SizeIsTheSumOfAllPieces) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    const Bytes payload(0x012345, 9);
    protocol.sendCommand(34, 1, chainOfPieces(payload, 1000));
    EXPECT_EQ(stream.packets(), (std::vector<oracle::Packet>{{0x24, 34, 1, payload}}));
    const Bytes written = bytesOf(stream.writes[0]);
    EXPECT_EQ(Bytes(written.begin() + 5, written.begin() + 9), (Bytes{0x00, 0x01, 0x23, 0x45}));
}

TEST(SendCommand, PiecesAreChainedAndNotCopied) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    const OBufList payload = chainOfPieces({1, 2, 3, 4, 5, 6}, 2);
    protocol.sendCommand(34, 1, payload);
    ASSERT_EQ(stream.writes[0].size(), 4U);
    auto written = std::next(stream.writes[0].begin());
    for (const OBufView& piece : payload) {
        EXPECT_EQ(written->data(), piece.data());
        ++written;
    }
}

TEST(SendCommand, WithoutAStreamNothingIsSentAndThePayloadIsReleased) {
    CtrlProtocol protocol;
    OBufList payload = chainOf({1, 2, 3});
    const std::weak_ptr<ORefBuffer> block = payload.front().buffer;
    protocol.sendCommand(34, 1, std::move(payload));
    EXPECT_TRUE(block.expired());
}

TEST(SendCommand, WithoutAStreamNothingIsLogged) {
    CtrlProtocol protocol;
    LogCapture log;
    protocol.sendCommand(34, 1, chainOf({1, 2, 3}));
    EXPECT_TRUE(log.lines().empty());
}

TEST(SendCommand, AfterTheStreamIsTakenAwayNothingIsSent) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protocol.setStream(nullptr);
    protocol.sendCommand(34, 1, {});
    EXPECT_TRUE(stream.writes.empty());
}

TEST(SendCommand, ThePayloadIsReleasedWhenTheStreamIsDoneWithIt) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    OBufList payload = chainOf({1, 2, 3});
    const std::weak_ptr<ORefBuffer> block = payload.front().buffer;
    protocol.sendCommand(34, 1, std::move(payload));
    EXPECT_FALSE(block.expired());
    stream.writes.clear();
    EXPECT_TRUE(block.expired());
}

TEST(SendCommand, AWriteThatTheStreamRefusesIsLostAndTheNextOneIsMade) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    stream.accepts = false;
    protocol.sendCommand(34, 1, {});
    stream.accepts = true;
    protocol.sendCommand(34, 2, {});
    EXPECT_EQ(stream.writes.size(), 2U);
}

TEST(SendCommand, TheStopRequestHasExactlyTheseBytes) {
    RecordingSocket stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addInt("Stop", 200004).finish(payload);
    protocol.sendCommand(8193, 1, payload);
    EXPECT_EQ(bytesOf(stream.writes[0]), (Bytes{0x24, 0x20, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x0A, 4, 'S',
                                                't', 'o', 'p', 6, 0x00, 0x03, 0x0D, 0x44}));
}

TEST(SendCommand, WhatIsSentIsReceivedAgain) {
    RecordingSocket stream;
    CtrlProtocol sender;
    sender.setStream(&stream);
    RecordingProtocol receiver;
    sender.sendCommand(34, 1, chainOf({1, 2}));
    sender.sendCommand(65535, 65535, {});
    for (OBufList& write : stream.writes) {
        receiver.DepackPacket(write);
    }
    EXPECT_EQ(receiver.packets(),
              (std::vector<oracle::Packet>{{0x24, 34, 1, {1, 2}}, {0x24, 65535, 65535, {}}}));
}
