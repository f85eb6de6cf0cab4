#include "platform/path_text.h"

#include <gtest/gtest.h>

TEST(PathText, TheLastComponentFollowsTheLastSeparator) {
    EXPECT_EQ(platform::lastPathComponent("C:\\a\\b/c.log"), "c.log");
    EXPECT_EQ(platform::lastPathComponent("c.log"), "c.log");
    EXPECT_EQ(platform::lastPathComponent("a/"), "");
    EXPECT_TRUE(platform::endsInSeparator("a\\"));
    EXPECT_TRUE(platform::endsInSeparator("a/"));
    EXPECT_FALSE(platform::endsInSeparator("a"));
    EXPECT_FALSE(platform::endsInSeparator(""));
}
