#include "log/console.h"

#include "log/log_level.h"
#include "support/log/recording_console.h"

#include <gtest/gtest.h>

using namespace orvel::log4z;

TEST(ConsoleEcho, LevelsFromInfoUpHaveTheirColour) {
    RecordingConsole screen;
    ConsoleEcho echo(screen);
    const unsigned attributes[] = {3, 6, 4, 2, 5};
    for (int level = kLevelInfo; level <= kLevelFatal; ++level) {
        echo.show(level, "text");
        EXPECT_EQ(screen.coloured().back().attribute, attributes[level - kLevelInfo]);
        EXPECT_EQ(screen.coloured().back().text, "text");
    }
    EXPECT_EQ(screen.plain(), "");
}

TEST(ConsoleEcho, TraceDebugAndUnknownLevelsArePrintedPlainly) {
    RecordingConsole screen;
    ConsoleEcho echo(screen);
    echo.show(kLevelTrace, "a");
    echo.show(kLevelDebug, "b");
    echo.show(7, "c");
    echo.show(-1, "d");
    EXPECT_EQ(screen.plain(), "abcd");
    EXPECT_TRUE(screen.coloured().empty());
}

TEST(ConsoleEcho, NothingColouredIsPrintedWhereThereIsNoScreen) {
    RecordingConsole screen;
    screen.setScreen(false);
    ConsoleEcho echo(screen);
    echo.show(kLevelError, "lost");
    echo.show(kLevelDebug, "kept");
    echo.report("lost too");
    EXPECT_EQ(screen.plain(), "kept");
}

TEST(ConsoleEcho, PercentSignsInALineAreText) {
    RecordingConsole screen;
    ConsoleEcho echo(screen);
    echo.show(kLevelDebug, "100%s%n");
    echo.show(kLevelError, "100%s%n");
    EXPECT_EQ(screen.plain(), "100%s%n");
    EXPECT_EQ(screen.coloured().back().text, "100%s%n");
}

TEST(ConsoleEcho, AMessageOfTheManagerHasTheColourOfFatal) {
    RecordingConsole screen;
    ConsoleEcho echo(screen);
    echo.report("number %d \r\n", 7);
    ASSERT_EQ(screen.coloured().size(), 1u);
    EXPECT_EQ(screen.coloured()[0].attribute, 5u);
    EXPECT_EQ(screen.coloured()[0].text, "number 7 \r\n");
}
