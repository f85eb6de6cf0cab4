#include "scenario.h"

#include <gtest/gtest.h>

#include "wire.h"

namespace standin {
namespace {

using namespace std::string_literals;

// The steps that the text adds behind the one that creates the pipe.
std::vector<Step> stepsOf(const std::string& text) {
    Scenario scenario = parseScenario(text);
    EXPECT_EQ(scenario.error, "") << text;
    return {scenario.steps.begin() + 1, scenario.steps.end()};
}

std::string bytesOf(const std::string& text, const Counters& counters = {}) {
    const std::vector<Step> steps = stepsOf(text);
    return encodePacket(std::get<SendPacket>(steps.at(0).action).packet, 3, counters);
}

TEST(StandinScenario, EmptyTextOnlyCreatesThePipe) {
    const Scenario scenario = parseScenario("# nothing\n\n   \n");
    ASSERT_EQ(scenario.steps.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<Listen>(scenario.steps[0].action));
    EXPECT_EQ(scenario.guardSeconds, 120);
}

TEST(StandinScenario, NoPipeAndListenLeaveOutTheFirstStep) {
    EXPECT_TRUE(std::holds_alternative<WaitTime>(parseScenario("no-pipe").steps.at(0).action));
    const Scenario late = parseScenario("wait 50\nlisten\n");
    EXPECT_TRUE(std::holds_alternative<WaitTime>(late.steps.at(0).action));
    EXPECT_TRUE(std::holds_alternative<Listen>(late.steps.at(2).action));
}

TEST(StandinScenario, NotifyIsAPacketWithOneEntry) {
    EXPECT_EQ(bytesOf("notify int \"change-mode\" -3"), "$\0\x22\0\x03\0\0\0\x11\x0B"
                                                        "change-mode\x06\xFF\xFF\xFF\xFD"s);
}

TEST(StandinScenario, PacketCarriesEveryKindOfEntry) {
    const std::string bytes = bytesOf(R"(packet 0xF170 seq 258
        byte b 7
        string s "a b\x00"
        fill-string f 3
        nested n
            int i 1
        end
        typed 9 t 0102030405060708
        hex 0F 10
    end)");
    EXPECT_EQ(bytes, "$\xF1\x70\x01\x02\0\0\0\x32"
                     "\x01"
                     "b\x03\x07"
                     "\x01s\x14\0\0\0\x04"
                     "a b\0"
                     "\x01"
                     "f\x14\0\0\0\x03xxx"
                     "\x01n\x0E\0\x07\x01i\x06\0\0\0\x01"
                     "\x01t\x09\x01\x02\x03\x04\x05\x06\x07\x08"
                     "\x0F\x10"s);
}

TEST(StandinScenario, SizesCanBeAnnouncedWrongly) {
    EXPECT_EQ(bytesOf("packet 34 size 4294967295 magic 0\n hex 01\n end"),
              "\0\0\x22\0\x03\xFF\xFF\xFF\xFF\x01"s);
    EXPECT_EQ(bytesOf("packet 34 cut 2\n int k 1\n end"), "$\0\x22\0\x03\0\0\0\x05\x01k\x06\0\0"s);
    EXPECT_EQ(bytesOf("notify string k hi length 300"), "$\0\x22\0\x03\0\0\0\x09\x01k\x14\0\0\x01\x2Chi"s);
}

TEST(StandinScenario, CountersStandForNumbersAndInsideTexts) {
    EXPECT_EQ(bytesOf("notify int k $i", {{"i", 5}}), bytesOf("notify int k 5"));
    EXPECT_EQ(bytesOf("notify string k \"<${outer}/${i}>\"", {{"i", 5}, {"outer", 12}}),
              bytesOf("notify string k <12/5>"));
}

TEST(StandinScenario, BlocksKnowTheirEnds) {
    const Scenario scenario =
        parseScenario("repeat 2 as n\nsplit pace 1\nflush\nend\nend\nrepeat forever\nend\n");
    ASSERT_EQ(scenario.error, "");
    const auto& begin = std::get<RepeatBegin>(scenario.steps.at(1).action);
    EXPECT_EQ(begin.counter, "n");
    EXPECT_EQ(begin.end, 5U);
    EXPECT_EQ(std::get<RepeatEnd>(scenario.steps.at(begin.end).action).begin, 1U);
    EXPECT_TRUE(std::holds_alternative<SplitEnd>(scenario.steps.at(4).action));
    EXPECT_FALSE(std::get<RepeatBegin>(scenario.steps.at(6).action).count);
}

TEST(StandinScenario, WaitsCarryTheirConditionsAndGuards) {
    const std::vector<Step> steps = stepsOf(
        "wait packet command 34 key KORUInfo count 2 guard 5\nwait file \"go on\"\nwait connection\nwait 7");
    const auto& packet = std::get<WaitPacket>(steps.at(0).action);
    EXPECT_EQ(packet.command->literal, 34);
    EXPECT_EQ(packet.key->pattern, "KORUInfo");
    EXPECT_EQ(packet.count.literal, 2);
    EXPECT_EQ(packet.guard, 5);
    EXPECT_EQ(std::get<WaitFile>(steps.at(1).action).path.pattern, "go on");
    EXPECT_EQ(std::get<WaitConnection>(steps.at(2).action).guard, 30000);
    EXPECT_EQ(std::get<WaitTime>(steps.at(3).action).milliseconds.literal, 7);
}

TEST(StandinScenario, SlowReadingHasASizeAndAPause) {
    const std::vector<Step> steps = stepsOf("read-slowly 3 1000");
    const auto& slowly = std::get<ReadSlowly>(steps.at(0).action);
    EXPECT_EQ(slowly.bytes.literal, 3);
    EXPECT_EQ(slowly.pause.literal, 1000);
    EXPECT_EQ(parseScenario("read-slowly 3").error, "line 1: milliseconds is missing");
}

TEST(StandinScenario, MistakesAreReportedWithTheirLine) {
    EXPECT_EQ(parseScenario("flush\njump").error, "line 2: unknown step: jump");
    EXPECT_EQ(parseScenario("repeat 2").error, "line 1: a block is not closed");
    EXPECT_EQ(parseScenario("end").error, "line 1: \"end\" without a block");
    EXPECT_EQ(parseScenario("packet 34\nint k 1").error, "line 2: entries are not closed by \"end\"");
    EXPECT_EQ(parseScenario("notify int k").error, "line 1: value is missing");
    EXPECT_EQ(parseScenario("notify int k x").error, "line 1: value is not a number: x");
    EXPECT_EQ(parseScenario("bytes 123").error, "line 1: odd count of hexadecimal digits: 123");
    EXPECT_EQ(parseScenario("note \"open").error, "line 1: a quoted text is not closed");
    EXPECT_EQ(parseScenario("flush now").error, "line 1: unexpected word: now");
    EXPECT_EQ(parseScenario("on-stop").error, "line 1: on-stop needs \"exit\" or \"ignore\"");
}

} // namespace
} // namespace standin
