#include "record.h"

#include <gtest/gtest.h>

namespace standin {
namespace {

using namespace std::string_literals;

TEST(StandinRecord, EveryByteSurvivesAsText) {
    EXPECT_EQ(jsonText("a\"b\\c\n\0\x7F\xC3"s), R"("a\"b\\c\u000a\u0000\u007f\u00c3")");
}

TEST(StandinRecord, LineIsOneJsonObject) {
    EXPECT_EQ(RecordLine("exit").number("code", -3).text("reason", "stop").finish(),
              "{\"event\":\"exit\",\"code\":-3,\"reason\":\"stop\"}\n");
    EXPECT_EQ(RecordLine("exit").finish(17), "{\"event\":\"exit\",\"at\":17}\n");
}

TEST(StandinRecord, PacketIsWrittenWithItsEntriesDecoded) {
    oracle::Packet packet;
    packet.command = 34;
    packet.sequence = 2;
    packet.payload = oracle::bytesOf("\x01i\x06\xFF\xFF\xFF\xFE\x01n\x0E\0\x09\x01s\x14\0\0\0\x02hi"s);
    EXPECT_EQ(
        packetLine(packet, From::Host).finish(),
        R"({"event":"packet","from":"host","command":34,"seq":2,"size":21,"entries":[{"key":"i","type":6,"value":-2},)"
        R"({"key":"n","type":14,"value":[{"key":"s","type":20,"value":"hi"}]}]})"
        "\n");
}

TEST(StandinRecord, MalformedPayloadKeepsWhatCameBeforeAndTheReason) {
    oracle::Packet packet;
    packet.payload = oracle::bytesOf("\x01"
                                     "a\x03\x01\x05zz"s);
    EXPECT_EQ(
        packetLine(packet, From::Host).finish(),
        R"({"event":"packet","from":"host","command":0,"seq":0,"size":7,"entries":[{"key":"a","type":3,"value":1}],)"
        R"("rest":"057a7a","malformed":"key needs 5 bytes, 2 left"})"
        "\n");
}

TEST(StandinRecord, NestedPayloadThatIsMalformedIsAText) {
    oracle::Packet packet;
    packet.payload = oracle::encodeNested("n", oracle::bytesOf("\x05zz"));
    EXPECT_NE(packetLine(packet, From::Host)
                  .finish()
                  .find(R"("entries":[{"key":"n","type":14,"value":"\u0005zz"}]})"),
              std::string::npos);
}

TEST(StandinRecord, OtherFirstByteAndBytesThatAreNoPacketAreKept) {
    oracle::Packet packet;
    packet.magic = 0x25;
    EXPECT_EQ(packetLine(packet, From::Service).finish(),
              R"({"event":"packet","from":"service","command":0,"seq":0,"size":0,"entries":[],"magic":37})"
              "\n");
    EXPECT_EQ(bytesLine({0x24, 0x00, 0xF2}, From::Host).finish(),
              "{\"event\":\"bytes\",\"from\":\"host\",\"bytes\":\"2400f2\"}\n");
}

} // namespace
} // namespace standin
