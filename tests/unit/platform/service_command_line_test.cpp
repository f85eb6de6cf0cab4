#include "platform/service_process.h"

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

class ServiceCommandLine : public testing::Test {
protected:
    ~ServiceCommandLine() override { std::setlocale(LC_ALL, "C"); }

    void useLocale(const char* name) { ASSERT_NE(std::setlocale(LC_ALL, name), nullptr) << name; }
};

TEST_F(ServiceCommandLine, ServiceStandsBesideTheHostAndGetsFolderAndLevel) {
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\App\\Host.exe", "D:\\logs", 2),
              L"C:\\App\\QuPCAudio.exe D:\\logs 2");
}

TEST_F(ServiceCommandLine, NothingIsQuoted) {
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\Program Files\\My Host\\Host.exe", "D:\\my logs", 0),
              L"C:\\Program Files\\My Host\\QuPCAudio.exe D:\\my logs 0");
}

TEST_F(ServiceCommandLine, LevelIsSignedDecimal) {
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\Host.exe", "D:\\logs", -12),
              L"C:\\QuPCAudio.exe D:\\logs -12");
}

TEST_F(ServiceCommandLine, HostWithoutAFolderGivesTheServicesNameAlone) {
    EXPECT_EQ(platform::serviceCommandLine(L"Host.exe", "D:\\logs", 1), L"QuPCAudio.exe D:\\logs 1");
}

TEST_F(ServiceCommandLine, EmptyLogFolderLeavesTwoBlanks) {
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\App\\Host.exe", "", 1), L"C:\\App\\QuPCAudio.exe  1");
}

TEST_F(ServiceCommandLine, LogFolderOfUpTo255CharactersIsWhole) {
    EXPECT_EQ(platform::widenLogDir(std::string(254, 'x').c_str()), std::wstring(254, L'x'));
    EXPECT_EQ(platform::widenLogDir(std::string(255, 'x').c_str()), std::wstring(255, L'x'));
}

TEST_F(ServiceCommandLine, LongerLogFolderIsCutAt255Characters) {
    EXPECT_EQ(platform::widenLogDir(std::string(256, 'x').c_str()), std::wstring(255, L'x'));
    EXPECT_EQ(platform::widenLogDir(std::string(5000, 'x').c_str()), std::wstring(255, L'x'));
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\Host.exe", std::string(300, 'x').c_str(), 2),
              L"C:\\QuPCAudio.exe " + std::wstring(255, L'x') + L" 2");
}

TEST_F(ServiceCommandLine, LogFolderIsReadInTheCurrentLocale) {
    EXPECT_NE(platform::widenLogDir(kEuro), L"\u20AC");
    useLocale(kEuroLocale);
    EXPECT_EQ(platform::widenLogDir(kEuro), L"\u20AC");
}

TEST_F(ServiceCommandLine, LengthIsCountedInCharactersNotBytes) {
    useLocale(kEuroLocale);
    std::string text;
    for (int i = 0; i < 300; ++i) {
        text += kEuro;
    }
    EXPECT_EQ(platform::widenLogDir(text.c_str()), std::wstring(255, L'\u20AC'));
}

TEST_F(ServiceCommandLine, LogFolderThatCannotBeConvertedIsEmpty) {
    useLocale(kStrictLocale);
    EXPECT_EQ(platform::widenLogDir(kBroken), L"");
    EXPECT_EQ(platform::serviceCommandLine(L"C:\\App\\Host.exe", kBroken, 2), L"C:\\App\\QuPCAudio.exe  2");
}

} // namespace
