#include "transport/loop_log.h"

#include "support/output_capture.h"
#include "support/transport/transport_support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace support;

namespace {

TEST(LoopLog, SinkGetsLevelTagAndFormattedText) {
    std::string line;
    setLoopLogSink([&](int level, const char* tag, const char* text) {
        line = std::to_string(level) + "|" + tag + "|" + text;
    });
    logLoopLine(2, "Tag", "%s and %d", "text", 7);
    quietLoopLog();
    EXPECT_EQ(line, "2|Tag|text and 7");
}

TEST(LoopLog, LongLineIsTruncated) {
    std::string line;
    setLoopLogSink([&](int, const char*, const char* text) { line = text; });
    logLoopLine(1, "Tag", "%s", std::string(2000, 'x').c_str());
    quietLoopLog();
    EXPECT_EQ(line, std::string(511, 'x'));
}

TEST(LoopLog, WithoutASinkTheLineGoesToTheLog) {
    setLoopLogSink({});
    OutputCapture output;
    logLoopLine(kLogError, "Tag", "%s", "a 100% line");
    const std::string printed = output.end();
    quietLoopLog();
    EXPECT_NE(printed.find("a 100% line"), std::string::npos) << printed;
}

TEST(LoopLog, SinkMaySetAnotherSink) {
    std::vector<std::string> lines;
    setLoopLogSink([&](int, const char*, const char* text) {
        lines.emplace_back(text);
        setLoopLogSink({});
    });
    logLoopLine(1, "Tag", "one");
    quietLoopLog();
    EXPECT_EQ(lines, std::vector<std::string>({"one"}));
}

} // namespace
