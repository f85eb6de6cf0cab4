#include "log/console.h"

#include "log/log_level.h"
#include "support/log/recording_console.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

using namespace support;
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

TEST(ConsoleEcho, TwoThreadsColoursDoNotMeet) {
    class Screen final : public platform::Console {
    public:
        bool printColoured(unsigned, const char*) override {
            meetings += isInside.exchange(true) ? 1 : 0;
            for (int turn = 0; turn < 20; ++turn) {
                std::this_thread::yield(); // the other's turn, between the colour and the text
            }
            isInside.store(false);
            return true;
        }

        void print(const char*) override {}

        std::atomic<bool> isInside{false};
        std::atomic<int> meetings{0};
    } screen;

    ConsoleEcho echo(screen);
    const auto showMany = [&] {
        for (int i = 0; i < 200; ++i) {
            echo.show(kLevelError, "text");
            echo.report("text");
        }
    };
    std::thread other(showMany);
    showMany();
    other.join();
    EXPECT_EQ(screen.meetings.load(), 0);
}

#ifdef _WIN32
// The screen that is shown is left alone: a buffer of its own stands in for it.
TEST(SystemConsole, AColouredTextIsInItsColourAndTheScreensOwnIsPutBack) {
    const bool isMade =
        AllocConsole() != FALSE; // fails where there is one already, and under Wine without a screen
    if (!isMade && GetConsoleWindow() == nullptr) {
        GTEST_SKIP() << "no console here: " << GetLastError();
    }
    const HANDLE before = GetStdHandle(STD_OUTPUT_HANDLE);
    const HANDLE screen =
        CreateConsoleScreenBuffer(GENERIC_READ | GENERIC_WRITE, 0, nullptr, CONSOLE_TEXTMODE_BUFFER, nullptr);
    ASSERT_NE(screen, INVALID_HANDLE_VALUE) << GetLastError();
    SetConsoleTextAttribute(screen, 0x17);
    SetStdHandle(STD_OUTPUT_HANDLE, screen);
    const bool isShown = platform::systemConsole().printColoured(4, "red");
    platform::systemConsole().print("own");
    SetStdHandle(STD_OUTPUT_HANDLE, before);
    EXPECT_TRUE(isShown);
    WORD colours[6] = {};
    char letters[6] = {};
    DWORD count = 0;
    EXPECT_TRUE(ReadConsoleOutputAttribute(screen, colours, 6, {0, 0}, &count));
    EXPECT_TRUE(ReadConsoleOutputCharacterA(screen, letters, 6, {0, 0}, &count));
    EXPECT_EQ(std::string(letters, 6), "redown");
    EXPECT_EQ(std::vector<WORD>(colours, colours + 6), (std::vector<WORD>{4, 4, 4, 0x17, 0x17, 0x17}));
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    EXPECT_TRUE(GetConsoleScreenBufferInfo(screen, &info));
    EXPECT_EQ(info.wAttributes, 0x17);
    CloseHandle(screen);
}
#endif
