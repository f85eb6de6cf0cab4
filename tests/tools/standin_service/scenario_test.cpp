// Words close to right ones. cspell:ignore comand conection repaet strin

#include "scenario.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "oracle/bytes.h"

namespace standin {
namespace {

using namespace std::string_literals;

// The steps that the text adds after the one that creates the pipe.
std::vector<Step> stepsOf(const std::string& text) {
    Scenario scenario = parseScenario(text);
    EXPECT_FALSE(scenario.mistake) << text;
    return {scenario.steps.begin() + 1, scenario.steps.end()};
}

std::string bytesOf(const std::string& text, const Counters& counters = {}) {
    const std::vector<Step> steps = stepsOf(text);
    return oracle::text(encodePacket(std::get<SendPacket>(steps.at(0).action).packet, 3, counters));
}

std::string mistakeOf(const std::string& text) {
    const Scenario scenario = parseScenario(text);
    return scenario.mistake ? scenario.mistake->describe("").substr(1) : "none";
}

TEST(StandinScenario, EmptyTextOnlyCreatesThePipe) {
    const Scenario scenario = parseScenario("# nothing\n\n   \n");
    ASSERT_EQ(scenario.steps.size(), 1U);
    EXPECT_TRUE(std::holds_alternative<Listen>(scenario.steps[0].action));
    EXPECT_FALSE(scenario.guardSeconds);
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
    ASSERT_FALSE(scenario.mistake);
    const auto& begin = std::get<RepeatBegin>(scenario.steps.at(1).action);
    EXPECT_EQ(begin.counter, "n");
    EXPECT_EQ(begin.end, 5U);
    EXPECT_EQ(std::get<RepeatEnd>(scenario.steps.at(begin.end).action).begin, 1U);
    EXPECT_TRUE(std::holds_alternative<SplitEnd>(scenario.steps.at(4).action));
    EXPECT_FALSE(std::get<RepeatBegin>(scenario.steps.at(6).action).count);
}

TEST(StandinScenario, WaitsCarryTheirConditionsAndTimeouts) {
    const std::vector<Step> steps = stepsOf(
        "wait packet command 34 key KORUInfo count 2 guard 5\nwait file \"go on\"\nwait connection\nwait 7");
    const auto& packet = std::get<WaitPacket>(steps.at(0).action);
    EXPECT_EQ(packet.command->literal, 34);
    EXPECT_EQ(packet.key->pattern, "KORUInfo");
    EXPECT_EQ(packet.count.literal, 2);
    EXPECT_EQ(packet.guard, 5);
    EXPECT_EQ(std::get<WaitFile>(steps.at(1).action).path.pattern, "go on");
    EXPECT_FALSE(std::get<WaitConnection>(steps.at(2).action).guard);
    EXPECT_EQ(std::get<WaitTime>(steps.at(3).action).milliseconds.literal, 7);
}

TEST(StandinScenario, SlowReadingHasASizeAndAPause) {
    const std::vector<Step> steps = stepsOf("read-slowly 3 1000");
    const auto& slowly = std::get<ReadSlowly>(steps.at(0).action);
    EXPECT_EQ(slowly.bytes.literal, 3);
    EXPECT_EQ(slowly.pause.literal, 1000);
    EXPECT_EQ(mistakeOf("read-slowly 3"),
              "1:14: expected a number (milliseconds), found the end of the line");
}

TEST(StandinScenario, CommandsHaveNumbersAndNames) {
    EXPECT_EQ(bytesOf("packet Notify\nend"), bytesOf("packet 34\nend"));
    EXPECT_EQ(bytesOf("packet OpenDebugLog\nend"), bytesOf("packet 0xF170\nend"));
}

TEST(StandinScenario, MistakesAreReportedWhereTheyAre) {
    EXPECT_EQ(mistakeOf("repeat 2"), "1:1: expected \"end\" for this block, found the end of the scenario");
    EXPECT_EQ(mistakeOf(" end"), "1:2: expected a step, found \"end\" without a block");
    EXPECT_EQ(mistakeOf("packet 34\nint k 1"),
              "1:1: expected \"end\" for this block, found the end of the scenario");
    EXPECT_EQ(mistakeOf("notify int k"), "1:13: expected a number (value), found the end of the line");
    EXPECT_EQ(mistakeOf("notify int k x"), "1:14: expected a number (value), found \"x\"");
    EXPECT_EQ(mistakeOf("bytes 12 123"), "1:10: expected pairs of hexadecimal digits, found \"123\"");
    EXPECT_EQ(mistakeOf("note \"open"),
              "1:6: expected a closing \" for this quoted text, found the end of the line");
    EXPECT_EQ(mistakeOf("note \"a\\q\""),
              "1:8: expected one of the escapes \\\" \\\\ \\n \\t \\xHH in a quoted text");
    EXPECT_EQ(mistakeOf("flush now"), "1:7: expected the end of the line, found \"now\"");
    EXPECT_EQ(mistakeOf("on-stop"), "1:8: expected \"exit\" or \"ignore\", found the end of the line");
}

TEST(StandinScenario, WordCloseToARightOneIsSuggested) {
    EXPECT_EQ(mistakeOf("flush\n  repaet 3"),
              "2:3: expected a step, found \"repaet\"; did you mean \"repeat\"?");
    EXPECT_EQ(mistakeOf("xylophone"), "1:1: expected a step, found \"xylophone\"");
    EXPECT_EQ(mistakeOf("wait packet comand 34"),
              "1:13: expected \"command\", \"key\", \"count\", \"guard\" or the end of the line, "
              "found \"comand\"; did you mean \"command\"?");
    EXPECT_EQ(mistakeOf("wait conection"),
              "1:6: expected \"connection\", \"packet\", \"file\" or a number of milliseconds, "
              "found \"conection\"; did you mean \"connection\"?");
    EXPECT_EQ(mistakeOf("packet notify\nend"),
              "1:8: expected a command's number or name, found \"notify\"; did you mean \"Notify\"?");
    EXPECT_EQ(mistakeOf("notify strin k x").substr(0, 20), "1:8: expected an ent");
    EXPECT_NE(mistakeOf("notify strin k x").find("; did you mean \"string\"?"), std::string::npos);
}

TEST(StandinScenario, EveryPrefixOfAScenarioIsReadOrItsMistakeIsInside) {
    const std::string text =
        "wait packet command 34 key \"K\\x41\" guard 5\nsplit pace 2\n packet 0xF170 seq 1 size 9\n"
        "  nested n length 3\n   int i $i\n  end\n end\nend\non-stop exit code 3 after 20\n";
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    for (std::size_t size = 0; size <= text.size(); ++size) {
        const Scenario scenario = parseScenario(text.substr(0, size));
        if (scenario.mistake) {
            EXPECT_TRUE(scenario.mistake->line >= 1 && scenario.mistake->line <= lines)
                << text.substr(0, size);
            EXPECT_TRUE(scenario.mistake->column >= 1 && scenario.mistake->column <= 60)
                << text.substr(0, size);
        }
    }
}

} // namespace
} // namespace standin
