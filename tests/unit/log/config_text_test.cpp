#include "log/config_text.h"

#include <gtest/gtest.h>

using namespace orvel::log4z;

TEST(ConfigText, ReadsSectionsAndPairsWithKeysInLowerCase) {
    const ConfigText text =
        parseConfigText("# comment\r\n\r\n[Net]\r\n  PATH = D:\\My Logs \r\nlevel=warn\n[Disk]\nx=y=z");
    ASSERT_EQ(text.sections.size(), 2u);
    EXPECT_EQ(text.sections[0].name, "Net");
    ASSERT_EQ(text.sections[0].pairs.size(), 2u);
    EXPECT_EQ(text.sections[0].pairs[0], (std::pair<std::string, std::string>("path", "D:\\My Logs")));
    EXPECT_EQ(text.sections[0].pairs[1], (std::pair<std::string, std::string>("level", "warn")));
    ASSERT_EQ(text.sections[1].pairs.size(), 1u);
    EXPECT_EQ(text.sections[1].pairs[0], (std::pair<std::string, std::string>("x", "y=z")));
    EXPECT_TRUE(text.warnings.empty());
}

TEST(ConfigText, MainInAnyLetterCaseIsMainForCompatibility) {
    for (const char* name : {"[main]", "[MAIN]", "[mAiN]", "[Main]"}) {
        const ConfigText text = parseConfigText(name);
        ASSERT_EQ(text.sections.size(), 1u);
        EXPECT_EQ(text.sections[0].name, "Main");
    }
}

TEST(ConfigText, ADuplicateSectionIsWarnedOfAndItsLinesAreIgnored) {
    const ConfigText text =
        parseConfigText("[a]\nlevel=info\n[A]\nlevel=warn\n[a]\nlevel=fatal\n[b]\nlevel=error\n");
    ASSERT_EQ(text.sections.size(), 3u);
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(text.sections[0].pairs, (Pairs{{"level", "info"}}));
    EXPECT_EQ(text.sections[1].pairs, (Pairs{{"level", "warn"}})) << "the section that was open before";
    EXPECT_EQ(text.sections[2].pairs, (Pairs{{"level", "error"}}));
    ASSERT_EQ(text.warnings.size(), 1u);
    EXPECT_EQ(text.warnings[0], "log4z configure warning: duplicate logger key:[a] at line: 5 \r\n");
}

TEST(ConfigText, APairBeforeAnySectionIsWarnedOf) {
    const ConfigText text = parseConfigText("#\nLevel = info\n[a]\n");
    ASSERT_EQ(text.warnings.size(), 1u);
    EXPECT_EQ(
        text.warnings[0],
        "log4z configure warning: not found current logger name:[] at line:2, key=level, value=info \r\n");
}

TEST(ConfigText, ALineThatIsNeitherSectionNorPairLosesNothingElse) {
    const ConfigText text = parseConfigText("[a]\nnonsense\nlevel=info");
    ASSERT_EQ(text.sections.size(), 1u);
    EXPECT_EQ(text.sections[0].pairs.size(), 1u);
    EXPECT_TRUE(text.warnings.empty());
}

TEST(ConfigText, EveryTruncationIsSurvived) {
    const std::string whole = "[main]\r\npath=x\r\n[=]\r\n==\r\n[\r\n]\r\n#\r\nlevel=info";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        parseConfigText(std::string_view(whole).substr(0, length));
    }
    EXPECT_TRUE(parseConfigText("").sections.empty());
}

TEST(ConfigText, TheChecksumIsTheSumOfTheUnsignedBytes) {
    EXPECT_EQ(configChecksum(""), 0u);
    EXPECT_EQ(configChecksum("\xff\x01"), 256u);
    EXPECT_EQ(configChecksum("ab"), configChecksum("ba"));
}

TEST(ConfigText, OnlyFalseAndZeroAreFalse) {
    EXPECT_FALSE(configFlag("false"));
    EXPECT_FALSE(configFlag("0"));
    for (const char* value : {"true", "1", "", "00", "no"}) {
        EXPECT_TRUE(configFlag(value)) << value;
    }
}

TEST(ConfigText, LevelWordsAndNumbersAreReadAndOthersChangeNothing) {
    const char* words[] = {"trace", "debug", "info", "warn", "error", "alarm", "fatal"};
    for (int expected = 0; expected < 7; ++expected) {
        int level = -1;
        EXPECT_TRUE(configLevel(words[expected], level));
        EXPECT_EQ(level, expected);
    }
    int level = -1;
    EXPECT_TRUE(configLevel("warning", level));
    EXPECT_EQ(level, 3);
    EXPECT_FALSE(configLevel("verbose", level));
    EXPECT_EQ(level, 3);
    std::int64_t number = 5;
    EXPECT_TRUE(configNumber("-17", number));
    EXPECT_EQ(number, -17);
    for (const char* unreadable : {"", "x", "1x", " 1", "99999999999999999999"}) {
        EXPECT_FALSE(configNumber(unreadable, number)) << unreadable;
    }
    EXPECT_EQ(number, -17);
}
