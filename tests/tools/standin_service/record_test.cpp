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
        packetLine(packet).finish(),
        R"({"event":"packet","command":34,"seq":2,"size":21,"entries":[{"key":"i","type":6,"value":-2},)"
        R"({"key":"n","type":14,"value":[{"key":"s","type":20,"value":"hi"}]}]})"
        "\n");
}

TEST(StandinRecord, MalformedPayloadKeepsWhatCameBeforeAndTheReason) {
    oracle::Packet packet;
    packet.payload = oracle::bytesOf("\x01"
                                     "a\x03\x01\x05zz"s);
    EXPECT_EQ(packetLine(packet).finish(),
              R"({"event":"packet","command":0,"seq":0,"size":7,"entries":[{"key":"a","type":3,"value":1}],)"
              R"("malformed":"key needs 5 bytes, 2 left"})"
              "\n");
}

} // namespace
} // namespace standin
