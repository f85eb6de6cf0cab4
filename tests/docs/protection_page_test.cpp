// What docs/protection.md shows is what the library does.

#include "support/protocol/protection_support.h"
#include "support/transport/kept_stream.h"

#include "protocol/ctrl_protocol.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace support;

void protectConnection(CtrlProtocol& protocol, const AesBlock& key, const AesBlock& toPeer,
                       const AesBlock& fromPeer);

namespace {

/// The bytes of the page's only ```hex block.
Bytes workedPacket() {
    std::ifstream page(std::string(SONVIA_DOCS_DIR) + "/protection.md");
    std::string digits;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) == 0) {
            inside = line.rfind("```hex", 0) == 0;
        } else if (inside) {
            digits += line.substr(0, line.find("  "));
        }
    }
    return fromHex(digits);
}

constexpr AesBlock kCountingUp = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

TEST(ProtectionPageTest, WorkedPacketIsWhatTheSampleSends) {
    KeptStream stream;
    CtrlProtocol protocol;
    protocol.setStream(&stream);
    protectConnection(protocol, kTestKey, kCountingUp, kFarIv);
    protocol.sendCommand(34, 7, {OBufView::make("hello", 5)});
    EXPECT_EQ(stream.bytes, workedPacket());
}

TEST(ProtectionPageTest, WorkedPacketIsUnderstoodAtTheOtherEnd) {
    CtrlProtocol protocol;
    protectConnection(protocol, kTestKey, kFarIv, kCountingUp);
    Bytes received;
    protocol.setHandler(
        [&](const CtrlPacketHeader* header, const std::uint8_t* payload, std::uint32_t length) {
            EXPECT_EQ(+header->cmdType, 34);
            EXPECT_EQ(+header->seq, 7);
            received.assign(payload, payload + length);
        });
    const Bytes packet = workedPacket();
    protocol.DepackPacket({OBufView::make(packet.data(), packet.size())});
    EXPECT_EQ(received, textBytes("hello"));
}

} // namespace
