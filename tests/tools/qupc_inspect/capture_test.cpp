#include "capture.h"

#include <gtest/gtest.h>

#include "capture_line.h"
#include "encode.h"
#include "hex.h"
#include "inputs.h"

using inspect::Chunk;
using inspect::Form;
using inspect::Side;

namespace {

std::string mistakeIn(const std::string& text) {
    return mistakeOf([&] { chunksOf(text); });
}

std::string hexOfFirst(const std::string& text) {
    return inspect::hexOf(chunksOf(text).at(0).bytes);
}

std::string encoded(const std::string& text, Form form = Form::Hex) {
    std::istringstream in(text);
    std::ostringstream out;
    inspect::encode(in, "input", out, form);
    return out.str();
}

} // namespace

TEST(InspectCapture, LinesAreBytesPacketsAndEvents) {
    const std::vector<Chunk> chunks = chunksOf(
        R"({"event":"start","qupc-capture":1,"masked":true,"pid":3,"at":1})"
        "\n"
        R"({"event":"connect","at":2})"
        "\n\n"
        R"({"event":"bytes","from":"host","bytes":"24 00","at":3})"
        "\n"
        R"({"event":"packet","from":"service","command":"Notify","seq":7,"size":9,"entries":[{"key":"k","type":6,"value":-2}],"at":4})"
        "\r\n");
    ASSERT_EQ(3U, chunks.size());
    EXPECT_EQ("connect", chunks[0].mark);
    EXPECT_EQ(Side::Host, chunks[1].from);
    EXPECT_EQ("2400", inspect::hexOf(chunks[1].bytes));
    EXPECT_EQ(4U, chunks[1].line);
    EXPECT_EQ(3, chunks[1].at);
    EXPECT_EQ(Side::Service, chunks[2].from);
    EXPECT_EQ("24002200070000000"
              "7016b06fffffffe",
              inspect::hexOf(chunks[2].bytes));
}

TEST(InspectCapture, HexTextSaysWhoSentIt) {
    const std::vector<Chunk> chunks = chunksOf("# a comment\n> 24 00\n<AB cd # another\n\n01");
    ASSERT_EQ(3U, chunks.size());
    EXPECT_EQ(Side::Host, chunks[0].from);
    EXPECT_EQ(2U, chunks[0].line);
    EXPECT_EQ("abcd", inspect::hexOf(chunks[1].bytes));
    EXPECT_EQ(Side::Service, chunks[2].from);
}

TEST(InspectCapture, RawBytesAreTheSideThatIsNamed) {
    inspect::CaptureReader::Options options;
    options.from = Side::Host;
    EXPECT_EQ(Side::Host, chunksOf("$\r\n", options).at(0).from);
    EXPECT_EQ("240d0a", inspect::hexOf(chunksOf("$\r\n", options).at(0).bytes));
    options.form = Form::Raw;
    EXPECT_EQ("7b7d", inspect::hexOf(chunksOf("{}", options).at(0).bytes));
}

TEST(InspectCapture, EmptyInputHasNothing) {
    EXPECT_TRUE(chunksOf("").empty());
}

TEST(InspectCapture, MistakesAreNamedByLine) {
    EXPECT_EQ("input:2: expected pairs of hexadecimal digits", mistakeIn("24\n2x\n"));
    EXPECT_EQ("input:1: expected pairs of hexadecimal digits", mistakeIn("24 0 0"));
    EXPECT_EQ("input:2: expected a JSON object, which ends at column 9",
              mistakeIn("{\"event\":\"a\"}\n{\"event\"\n"));
    EXPECT_EQ("input:1: expected \"bytes\", \"command\" or \"event\"", mistakeIn("{}"));
    EXPECT_EQ("input:1: expected \"qupc-capture\" to be a number from 1 to 1",
              mistakeIn(R"({"qupc-capture":2})"));
    EXPECT_EQ("input:1: expected \"from\" to be \"host\" or \"service\"",
              mistakeIn(R"({"bytes":"","from":"phone"})"));
    EXPECT_EQ("input:1: expected \"seq\" to be a number from 0 to 65535",
              mistakeIn(R"({"from":"host","command":34,"seq":65536})"));
    EXPECT_EQ("input:1: expected \"command\" to be the name of a command or its number",
              mistakeIn(R"({"from":"host","command":"Notice"})"));
}

TEST(InspectCapture, ValuesThatCannotBeWrittenAreRefused) {
    const auto entry = [](const std::string& text) {
        return mistakeIn(R"({"from":"host","command":34,"entries":[)" + text + "]}");
    };
    EXPECT_EQ("", entry(R"({"key":"k","type":3,"value":255},{"key":"k","type":3,"value":-128})"));
    EXPECT_EQ("input:1: expected a number of 1 bytes", entry(R"({"key":"k","type":3,"value":256})"));
    EXPECT_EQ("input:1: expected a number of 1 bytes", entry(R"({"key":"k","type":3,"value":-129})"));
    EXPECT_EQ("input:1: expected a number of 4 bytes", entry(R"({"key":"k","type":6,"value":"1"})"));
    EXPECT_EQ("input:1: expected a type that has a value, not 15",
              entry(R"({"key":"k","type":15,"value":1})"));
    EXPECT_EQ("input:1: expected a key of at most 255 bytes",
              entry(R"({"key":")" + std::string(256, 'k') + R"(","type":3,"value":1})"));
    EXPECT_EQ("input:1: expected a value of at most 65535 bytes",
              entry(R"({"key":"k","type":14,"value":")" + std::string(65536, 'v') + R"("})"));
    EXPECT_EQ("input:1: expected keys and texts of characters up to \\u00ff, one a byte",
              entry(R"({"key":"\u0100","type":3,"value":1})"));
    EXPECT_EQ("input:1: expected an entry: \"key\", \"type\" from 0 to 255, \"value\"",
              entry(R"({"key":"k"})"));
    std::string deep = R"({"key":"k","type":3,"value":1})";
    for (int level = 0; level < 100; ++level) {
        deep = R"({"key":"n","type":14,"value":[)" + deep + "]}";
    }
    EXPECT_EQ("input:1: expected a list of entries, nested at most 32 deep", entry(deep));
}

TEST(InspectCapture, NumbersOfEveryWidthAreWritten) {
    const auto written = [](int type, const std::string& value) {
        return hexOfFirst(R"({"from":"host","command":0,"entries":[{"key":"","type":)" +
                          std::to_string(type) + R"(,"value":)" + value + "}]}")
            .substr(22);
    };
    EXPECT_EQ("ff", written(0, "255"));
    EXPECT_EQ("fffe", written(5, "-2"));
    EXPECT_EQ("ffffffff", written(7, "4294967295"));
    EXPECT_EQ("ffffffffffffffff", written(8, "18446744073709551615"));
    EXPECT_EQ("8000000000000000", written(11, "-9223372036854775808"));
    EXPECT_EQ("000361ff00", written(12, R"("a\u00ff\u0000")"));
    EXPECT_EQ("0000000161", written(22, R"("a")"));
}

TEST(InspectCapture, LineBeyondTheLimitIsRefused) {
    const std::string line(inspect::CaptureReader::kLongestLine + 200'000, '0');
    EXPECT_EQ("input:1: expected a line of at most 67108864 bytes", mistakeIn(line));
}

TEST(InspectCapture, WrittenLinesAreReadAgain) {
    Chunk chunk;
    chunk.at = -5;
    chunk.from = Side::Host;
    chunk.bytes = {0x24, 0xFF};
    Chunk mark;
    mark.mark = "a \"mark\"\n";
    const std::vector<Chunk> chunks =
        chunksOf(inspect::captureHead(false) + inspect::captureLine(chunk) + inspect::captureLine(mark));
    ASSERT_EQ(2U, chunks.size());
    EXPECT_EQ(chunk.bytes, chunks[0].bytes);
    EXPECT_EQ(-5, chunks[0].at);
    EXPECT_EQ(Side::Host, chunks[0].from);
    EXPECT_EQ(mark.mark, chunks[1].mark);
}

TEST(InspectEncode, SendingStepsAreEncodedInEachForm) {
    const std::string scenario = "wait packet command 34\nnotify int \"k\" 1\nwait 20\n"
                                 "packet 8193 seq 9\nend\nbytes 2400\nfill 2 0x41\n";
    EXPECT_EQ("< 24 00 22 00 01 00 00 00 07 01 6b 06 00 00 00 01\n"
              "< 24 20 01 00 09 00 00 00 00\n< 24 00\n< 41 41\n",
              encoded(scenario));
    EXPECT_EQ("{\"event\":\"start\",\"qupc-capture\":1,\"masked\":false}\n"
              "{\"event\":\"bytes\",\"from\":\"service\",\"bytes\":\"242001000900000000\",\"at\":20000}\n",
              encoded("wait 20\npacket 8193 seq 9\nend\n", Form::Capture));
    EXPECT_EQ("AAA", encoded("fill 3 65\n", Form::Raw));
}

// As the stand-in numbers them.
TEST(InspectEncode, PacketsWithoutANumberAreCounted) {
    EXPECT_EQ("< 24 00 22 00 01 00 00 00 00\n< 24 00 22 00 07 00 00 00 00\n< 24 00 22 00 03 00 00 00 00\n",
              encoded("packet 34\nend\npacket 34 seq 7\nend\npacket 34\nend\n"));
}

TEST(InspectEncode, MistakesOfAScenarioAreNamedByPlace) {
    EXPECT_EQ(0U, mistakeOf([] { encoded("notify int\n"); }).find("input:1:"));
    EXPECT_EQ("input:2: expected single packets, found a repeat block",
              mistakeOf([] { encoded("flush\nrepeat 3\nnotify int \"k\" 1\nend\n"); }));
}

TEST(InspectEncode, EncodedCaptureStaysMasked) {
    EXPECT_EQ(inspect::captureHead(true), encoded(inspect::captureHead(true), Form::Capture));
}
