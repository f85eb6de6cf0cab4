#include "views.h"

#include <gtest/gtest.h>

#include "filter.h"
#include "inputs.h"

using inspect::Item;

namespace {

// Both sides, an event between them, and a payload that is nested and breaks off.
constexpr const char* kCapture =
    R"({"event":"connect","at":1000000})"
    "\n"
    R"({"event":"packet","from":"host","command":34,"seq":1,"entries":[{"key":"KORUInfo","type":14,"value":[{"key":"sn","type":20,"value":"x;\n"}]},{"key":"b","type":3,"value":9}],"at":1250000})"
    "\n"
    R"({"event":"packet","from":"service","command":8193,"seq":2,"rest":"0561","at":1500000})"
    "\n";

std::string printed(inspect::View& view) {
    std::string text = view.head(false);
    for (const Item& item : itemsOf(kCapture)) {
        text += view.of(item);
    }
    return text;
}

/// The numbers of the items that are let through.
std::string let(const std::string& conditions) {
    const inspect::Filter filter(conditions);
    std::string numbers;
    int number = 0;
    for (const Item& item : itemsOf(kCapture)) {
        numbers += filter.lets(item) ? std::to_string(number) : "";
        ++number;
    }
    return numbers;
}

std::string mistakeInFilter(const std::string& conditions) {
    try {
        const inspect::Filter filter(conditions);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

} // namespace

TEST(InspectViews, TableIndentsWhatIsNestedAndNamesWhatIsMalformed) {
    inspect::Table table(false);
    EXPECT_EQ("   seconds  from     command                    seq    bytes\n"
              "  0.000000  -- connect\n"
              "  0.250000  host     Notify                       1       36\n"
              "            KORUInfo  (nested, 11 bytes)\n"
              "              sn                 \"x;\\u000a\"\n"
              "            b                  9  (type 3)\n"
              "  0.500000  service  StopPCAudioZLK               2       11\n"
              "            !! byte 10: key needs 5 bytes, 1 left: 05 61\n",
              printed(table));
}

TEST(InspectViews, HexShowsEachByte) {
    inspect::Table table(true);
    const std::string text = printed(table);
    EXPECT_NE(
        std::string::npos,
        text.find("            000000  24 00 22 00 01 00 00 00 1b 08 4b 4f 52 55 49 6e  $.\".......KORUIn\n"))
        << text;
    EXPECT_NE(std::string::npos, text.find("            000000  24 20 01 00 02 00 00 00 02 05 61"));
}

TEST(InspectViews, JsonHasWhatTheTableHas) {
    inspect::JsonLines json;
    EXPECT_EQ(
        R"({"event":"start","qupc-capture":1,"masked":false})"
        "\n"
        R"({"event":"connect","at":1000000})"
        "\n"
        R"({"event":"packet","from":"host","command":34,"name":"Notify","seq":1,"size":27,"entries":[{"key":"KORUInfo","type":14,"value":[{"key":"sn","type":20,"value":"x;\n"}]},{"key":"b","type":3,"value":9}],"at":1250000})"
        "\n"
        R"({"event":"packet","from":"service","command":8193,"name":"StopPCAudioZLK","seq":2,"size":2,"entries":[],"rest":"0561","malformed":"byte 10: key needs 5 bytes, 1 left","at":1500000})"
        "\n",
        printed(json));
}

TEST(InspectViews, MermaidEscapesWhatWouldEndALine) {
    inspect::Mermaid mermaid;
    EXPECT_EQ("sequenceDiagram\n    participant Host\n    participant Service\n"
              "    Note over Host,Service: connect\n"
              "    Host->>Service: Notify #35;1  KORUInfo {sn \"x#59;\\u000a\"}, b 9\n"
              "    Service->>Host: StopPCAudioZLK #35;2  malformed: key needs 5 bytes, 1 left\n",
              printed(mermaid));
}

TEST(InspectFilter, ConditionsMustAllBeMet) {
    EXPECT_EQ("012", let(""));
    EXPECT_EQ("1", let("from=host"));
    EXPECT_EQ("2", let("from=service"));
    EXPECT_EQ("1", let("command=Notify"));
    EXPECT_EQ("2", let("command=8193"));
    EXPECT_EQ("1", let("key=sn"));
    EXPECT_EQ("1", let("key=sn,key=b,seq=1"));
    EXPECT_EQ("", let("key=sn,from=service"));
    EXPECT_EQ("2", let("seq=2"));
    EXPECT_EQ("2", let("malformed"));
}

TEST(InspectFilter, UnknownConditionsAreRefused) {
    const std::string expected =
        "expected from=host, from=service, command=, key=, seq= or malformed, found ";
    EXPECT_EQ(expected + "\"form=host\"", mistakeInFilter("form=host"));
    EXPECT_EQ(expected + "\"from=phone\"", mistakeInFilter("from=phone"));
    EXPECT_EQ(expected + "\"seq=70000\"", mistakeInFilter("seq=70000"));
    EXPECT_EQ(expected + "\"key=\"", mistakeInFilter("key="));
    EXPECT_EQ(expected + "\"malformed=1\"", mistakeInFilter("malformed=1"));
    EXPECT_EQ("expected the name of a command or its number, found \"Notice\"",
              mistakeInFilter("command=Notice"));
}
