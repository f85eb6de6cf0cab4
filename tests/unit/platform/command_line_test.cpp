#include "platform/command_line.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

#ifdef _WIN32
constexpr const char* kEuroLocale = ".1252";
constexpr const char* kEuro = "\x80";
constexpr const char* kStrictLocale = ".932";
constexpr const char* kBroken = "logs\x81"; // the first half of a character
#else
constexpr const char* kEuroLocale = "C.UTF-8";
constexpr const char* kEuro = "\xE2\x82\xAC";
constexpr const char* kStrictLocale = "C.UTF-8";
constexpr const char* kBroken = "logs\xE2\x82";
#endif

class CommandLine : public testing::Test {
protected:
    ~CommandLine() override { std::setlocale(LC_ALL, "C"); }

    void useLocale(const char* name) { ASSERT_NE(std::setlocale(LC_ALL, name), nullptr) << name; }
};

TEST_F(CommandLine, ProgramIsNextToTheHostAndGetsItsArguments) {
    EXPECT_EQ(platform::commandLine(L"C:\\App\\Host.exe", "Service.exe", {"D:\\logs", "2"}),
              L"C:\\App\\Service.exe D:\\logs 2");
}

TEST_F(CommandLine, NothingIsQuoted) {
    EXPECT_EQ(
        platform::commandLine(L"C:\\Program Files\\My Host\\Host.exe", "Service.exe", {"D:\\my logs", "0"}),
        L"C:\\Program Files\\My Host\\Service.exe D:\\my logs 0");
}

TEST_F(CommandLine, HostWithoutAFolderGivesTheProgramsNameAlone) {
    EXPECT_EQ(platform::commandLine(L"Host.exe", "Service.exe", {}), L"Service.exe");
}

TEST_F(CommandLine, EmptyArgumentLeavesTwoSpaces) {
    EXPECT_EQ(platform::commandLine(L"C:\\App\\Host.exe", "Service.exe", {"", "1"}),
              L"C:\\App\\Service.exe  1");
}

TEST_F(CommandLine, ArgumentOfUpTo255CharactersIsWhole) {
    EXPECT_EQ(platform::widenArgument(std::string(254, 'x').c_str()), std::wstring(254, L'x'));
    EXPECT_EQ(platform::widenArgument(std::string(255, 'x').c_str()), std::wstring(255, L'x'));
}

TEST_F(CommandLine, LongerArgumentIsTruncatedTo255Characters) {
    EXPECT_EQ(platform::widenArgument(std::string(256, 'x').c_str()), std::wstring(255, L'x'));
    EXPECT_EQ(platform::widenArgument(std::string(5000, 'x').c_str()), std::wstring(255, L'x'));
    EXPECT_EQ(platform::commandLine(L"C:\\Host.exe", "Service.exe", {std::string(300, 'x'), "2"}),
              L"C:\\Service.exe " + std::wstring(255, L'x') + L" 2");
}

TEST_F(CommandLine, ArgumentIsReadInTheCurrentLocale) {
    EXPECT_NE(platform::widenArgument(kEuro), L"\u20AC");
    useLocale(kEuroLocale);
    EXPECT_EQ(platform::widenArgument(kEuro), L"\u20AC");
}

TEST_F(CommandLine, LengthIsCountedInCharactersNotBytes) {
    useLocale(kEuroLocale);
    std::string text;
    for (int i = 0; i < 300; ++i) {
        text += kEuro;
    }
    EXPECT_EQ(platform::widenArgument(text.c_str()), std::wstring(255, L'\u20AC'));
}

TEST_F(CommandLine, ArgumentThatCannotBeConvertedIsEmpty) {
    useLocale(kStrictLocale);
    EXPECT_EQ(platform::widenArgument(kBroken), L"");
    EXPECT_EQ(platform::commandLine(L"C:\\App\\Host.exe", "Service.exe", {kBroken, "2"}),
              L"C:\\App\\Service.exe  2");
}

} // namespace
