#include "mask.h"

#include <gtest/gtest.h>

namespace bundle {
namespace {

TEST(Mask, TextsBecomeLettersAndAllElseStays) {
    EXPECT_EQ(maskedLine(
                  R"({"event":"packet","from":"host","command":34,"seq":0,"size":40,"entries":[)"
                  R"({"key":"n","type":14,"value":[{"key":"accountID","type":20,"value":"ab\u00e9\u0000"}]},)"
                  R"({"key":"i","type":6,"value":-2}],"at":17})"),
              R"({"event":"packet","from":"host","command":34,"seq":0,"size":40,"entries":[)"
              R"({"key":"n","type":14,"value":[{"key":"accountID","type":20,"value":"xxxx"}]},)"
              R"({"key":"i","type":6,"value":-2}],"at":17})"
              "\n");
}

TEST(Mask, BytesWithoutAMeaningBecomeLettersToo) {
    EXPECT_EQ(maskedLine(R"({"event":"packet","entries":[],"rest":"057a7a"})"),
              "{\"event\":\"packet\",\"entries\":[],\"rest\":\"787878\"}\n");
    EXPECT_EQ(maskedLine(R"({"event":"bytes","from":"host","bytes":"2400"})"),
              "{\"event\":\"bytes\",\"from\":\"host\",\"bytes\":\"7878\"}\n");
}

TEST(Mask, FirstLineSaysIt) {
    EXPECT_EQ(maskedLine(R"({"event":"start","qupc-capture":1,"masked":false})"),
              "{\"event\":\"start\",\"qupc-capture\":1,\"masked\":true}\n");
}

TEST(Mask, WhatIsNoLineOfACaptureIsLeftOut) {
    for (const char* line : {"", "account-1", "[1]", "{\"accountID\":\"account-1\"}", "{\"event\":\"pack"}) {
        EXPECT_EQ(maskedLine(line), "") << line;
    }
}

} // namespace
} // namespace bundle
