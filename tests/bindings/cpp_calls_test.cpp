// What sonvia::Session takes: texts, accounts, folders, and libraries that are none.
#include <filesystem>
#include <fstream>
#include <string>

#include "bindings/cpp_host.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using sonvia::Failure;
using support::Json;

class CppCalls : public support::CppHost {
protected:
    // Account ids in the order in which the service received them, whichever packet they came in.
    std::vector<std::string> accounts() {
        std::vector<std::string> found;
        for (const Json& packet : standin.packets(support::kNotify)) {
            for (const Json& entry : packet.at("entries").list()) {
                if (entry.at("key").text() == "accountID") {
                    found.push_back(entry.at("value").text());
                } else if (entry.at("key").text() == "KORUInfo") {
                    found.push_back(entryOf(entry.at("value").list(), "accountID").at("value").text());
                }
            }
        }
        return found;
    }
};

TEST_F(CppCalls, TextsThatCannotBeSentAreRefused) {
    ASSERT_EQ(open("", {}), std::error_code());
    const auto refused = [this](const std::string& text) {
        sonvia::Identity bad = identity;
        bad.pcName = text;
        EXPECT_EQ(session.setAccount(text), session.connect(bad)) << text;
        return session.connect(bad);
    };
    EXPECT_EQ(refused(std::string(256, 'x')), Failure::TextTooLong);
    EXPECT_EQ(refused(std::string("a\0b", 3)), Failure::TextHoldsNul);
    for (const char* bad : {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\x80",
                            "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "a\xE2\x82z", "\xFF"}) {
        EXPECT_EQ(refused(bad), Failure::TextNotUtf8);
    }
    EXPECT_EQ(standin.packets(support::kNotify).size(), 0U);
}

TEST_F(CppCalls, LongestTextAndEveryLengthOfLetterArriveByteForByte) {
    identity.accountID =
        std::string(251, 'x') + "\xF0\x9F\x8E\xA7"; // 255 bytes with the headphones at their end
    identity.pcName = "B\xC3\xBCro \xE2\x82\xAC\xED\x9F\xBF\xF4\x8F\xBF\xBF";
    start("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_EQ(accounts(), std::vector<std::string>{identity.accountID});
}

TEST_F(CppCalls, ShorterAccountReplacesALongerOneWhole) {
    identity.accountID = "abcdef";
    start("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_EQ(session.setAccount("abcdefgh"), std::error_code());
    EXPECT_EQ(session.setAccount("abc"), std::error_code());
    EXPECT_EQ(session.setAccount(""), std::error_code());
    ASSERT_TRUE(standin.waitForPackets(4, support::kNotify));
    EXPECT_EQ(accounts(), (std::vector<std::string>{"abcdef", "abcdefgh", "abc", ""}));
}

TEST_F(CppCalls, WithoutAServiceThereIsNoSession) {
    options.logFolder = "";
    EXPECT_EQ(open("", {}), Failure::FolderNotMade);
    EXPECT_EQ(session.open(sonvia::Library(), options, {}), Failure::LibraryNotLoaded);
    EXPECT_FALSE(session.isOpen());
    EXPECT_EQ(session.connect(identity), Failure::NotOpen);
}

TEST_F(CppCalls, FailuresHaveTexts) {
    const std::error_code failed = Failure::ServiceNotStarted;
    EXPECT_STREQ(failed.category().name(), "SonviaPCAudio");
    EXPECT_NE(failed.message().find("QuPCAudio.exe"), std::string::npos);
    EXPECT_STREQ(textOf(sonvia::EventKind::FirstAudio), "first audio");
    EXPECT_STREQ(nameOf(static_cast<sonvia::EventKind>(1)), "unknown");
    sonvia::LogLevel level = sonvia::LogLevel::Error;
    EXPECT_TRUE(sonvia::findLogLevel("warning", level));
    EXPECT_EQ(level, sonvia::LogLevel::Warning);
    EXPECT_FALSE(sonvia::findLogLevel("loud", level));
}

TEST_F(CppCalls, FolderThatCannotBeMadeIsRefused) {
    std::ofstream("file").put('x');
    std::string folder;
    EXPECT_EQ(sonvia::folderForService("file/logs", folder), Failure::FolderNotMade);
    EXPECT_EQ(sonvia::folderForService("file", folder), Failure::FolderNotMade);
    EXPECT_EQ(sonvia::folderForService("\xFF", folder), Failure::TextNotUtf8);
    EXPECT_EQ(sonvia::folderForService(std::string(201, 'x'), folder), Failure::FolderTooLong);
    EXPECT_EQ(sonvia::folderForService("made/on/the/way", folder), std::error_code());
    EXPECT_TRUE(fs::path(folder).is_absolute() && fs::is_directory(folder)) << folder;
}

#ifdef _WIN32
TEST_F(CppCalls, FolderWithSpacesAndLettersReachesTheServiceByItsShortName) {
    const fs::path folder = fs::current_path() / L"Logs of B\u00FCro \u4E2D";
    options.logFolder = "Logs of B\xC3\xBCro \xE4\xB8\xAD";
    start("");
    ASSERT_TRUE(standin.waitForEvent("start"));
    const Json::List argv = standin.recorded("start").at(0).at("argv").list();
    ASSERT_EQ(argv.size(), 3U) << "the service gets a folder without spaces";
    EXPECT_EQ(argv[2].text(), "3");
    EXPECT_TRUE(fs::equivalent(argv[1].text(), folder)) << argv[1].text();
}

TEST_F(CppCalls, LibraryIsLoadedFromTheNamedFolderAlone) {
    sonvia::Library found;
    EXPECT_EQ(found.load("no such folder").category(), std::system_category());
    EXPECT_FALSE(found);
    const fs::path folder = fs::current_path() / L"\u00FC folder";
    fs::create_directories(folder);
    fs::copy_file(support::programFolder() / "host_child.exe", folder / L"SonviaPCAudioDll.dll");
    EXPECT_EQ(found.load("\xC3\xBC folder"), Failure::NotTheLibrary);
    EXPECT_EQ(found.load("\xFF"), Failure::TextNotUtf8);
    EXPECT_FALSE(found);
}
#endif

} // namespace
