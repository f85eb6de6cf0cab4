#include "log/record_text.h"

#include "support/log/fake_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

using namespace orvel::log4z;
using support::FakeClock;

TEST(RecordText, AMessageIsAppendedAfterItsTag) {
    LogRecord record;
    record.contentLength = 3;
    appendMessage(record, "tag", "7-x");
    EXPECT_EQ(std::string(record.content + 3, static_cast<std::size_t>(record.contentLength - 3)),
              "tag: 7-x");
    record.contentLength = 0;
    appendMessage(record, nullptr, "x");
    EXPECT_EQ(std::string(record.content, static_cast<std::size_t>(record.contentLength)), ": x");
}

TEST(RecordText, AMessageThatOverflowsItsRecordMarksItFull) {
    const std::string longTag(5000, 't');

    struct Case {
        std::int32_t used;
        std::size_t tag;
        std::size_t message;
        std::int32_t expected;
    };

    for (const Case& c :
         {Case{100, 5000, 3089, 8191}, Case{100, 5000, 3090, 8192}, Case{100, 5000, 4095, 8192},
          Case{8192, 1, 1, 8192}, Case{8190, 1, 1, 8192}, Case{8188, 1, 0, 8191}}) {
        LogRecord record;
        std::memset(record.content, '.', sizeof record.content);
        record.contentLength = c.used;
        appendMessage(record, longTag.substr(0, c.tag).c_str(), std::string(c.message, 'm'));
        EXPECT_EQ(record.contentLength, c.expected) << c.used << " " << c.tag << " " << c.message;
        EXPECT_EQ(std::string(record.content + 8192, 3), "...") << "after the record's text";
    }
}

TEST(RecordText, ASourceIsNamedWithoutItsFolderAndTruncatedWhereItDoesNotFit) {
    LogRecord record;
    record.contentLength = 0;
    appendSource(record, "src\\api/exports.cpp", 42);
    EXPECT_EQ(std::string(record.content, static_cast<std::size_t>(record.contentLength)), " exports.cpp:42");
    record.contentLength = LogRecord::kCapacity - 3;
    appendSource(record, "exports.cpp", 42);
    EXPECT_EQ(record.contentLength, LogRecord::kCapacity);
}

TEST(RecordText, AnEndedLineHasItsLineEndAndItsTerminatorWhateverItsLength) {
    for (const std::int32_t length : {-1, 0, 1, 8188, 8189, 8190, 8192, 9000}) {
        LogRecord record;
        std::memset(record.content, 'x', sizeof record.content);
        record.contentLength = length;
        endLine(record);
        const std::int32_t kept = std::min(std::max(length, 0), 8189);
        ASSERT_EQ(record.contentLength, kept + 2) << length;
        EXPECT_STREQ(record.content + kept, "\r\n") << length;
    }
}

TEST(RecordText, TheReportOfLostLinesKeepsItsFixedFunctionAndLineForCompatibility) {
    FakeClock clock;
    const LinePrefix prefix(clock, "host");
    const LossReport report(prefix, clock.now(), 3, 5);
    const std::string text = report.text();
    EXPECT_EQ(text.size(), report.length());
    EXPECT_TRUE(text.ends_with(
        "] WARN  Sonvia_Default: [orvel::log4z::LogerManager::tellLosses:197]lines lost:3 in all:5\r\n"))
        << text;
}
