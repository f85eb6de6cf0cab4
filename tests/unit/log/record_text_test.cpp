#include "log/record_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace orvel::log4z;

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
