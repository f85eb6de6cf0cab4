// The development build of the DLL in a host: what it records, and that nothing comes of a capture that cannot be.
#include "support/process.h"
#include "support/standin.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <uv.h>

namespace {

std::string contentOf(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string captured() {
    return contentOf("session.jsonl");
}

/// A session of the demo host with the development build of the DLL and what the environment says.
void runWithTap() {
    const auto tap = support::programFolder() / "tap" / "SonviaPCAudioDll.dll";
    EXPECT_EQ(support::runProgram(support::programFolder() / "demo_host.exe", {"--library", tap.string()}),
              0);
    uv_os_unsetenv("SONVIA_TAP");
    uv_os_unsetenv("SONVIA_TAP_LIMIT");
}

TEST(Tap, RecordsBothSidesOfASessionAndNoText) {
    support::enterTestFolder();
    uv_os_setenv("SONVIA_TAP", "session.jsonl");
    runWithTap();
    const std::string capture = captured();
    for (const char* part :
         {R"("from":"host","command":34,"seq":0)", R"("from":"service","command":34,"seq":8)",
          R"("key":"accountID","type":20,"value":"xxxxxxxxxxxxxxxxxxx")", R"({"event":"disconnect")"}) {
        EXPECT_NE(capture.find(part), std::string::npos) << part << " is not in:\n" << capture;
    }
    for (const char* text : {"someone", "SN-0042", "Desktop", "Handset"}) {
        EXPECT_EQ(capture.find(text), std::string::npos) << capture;
    }
}

TEST(Tap, StopsAtTheLimitOfTheEnvironment) {
    support::enterTestFolder();
    uv_os_setenv("SONVIA_TAP", "session.jsonl");
    uv_os_setenv("SONVIA_TAP_LIMIT", "300");
    runWithTap();
    EXPECT_LE(captured().size(), 300U);
    EXPECT_NE(captured().find(R"({"event":"limit")"), std::string::npos) << captured();
}

TEST(Tap, FileThatCannotBeOpenedIsOneLineOfTheLog) {
    support::enterTestFolder();
    uv_os_setenv("SONVIA_TAP", "no such folder/session.jsonl");
    runWithTap();
    const std::string shown = contentOf("stdout.txt");
    const std::size_t first = shown.find("the capture cannot be opened");
    ASSERT_NE(first, std::string::npos) << shown;
    EXPECT_EQ(shown.find("the capture cannot be opened", first + 1), std::string::npos) << shown;
}

TEST(Tap, WithoutTheVariableNothingIsRecorded) {
    support::enterTestFolder();
    runWithTap();
    EXPECT_EQ(captured(), "");
}

} // namespace
