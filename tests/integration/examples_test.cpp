// The programs that the pages show do what the pages say.
#include "support/process.h"
#include "support/standin.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace {

std::string output() {
    std::ifstream file("stdout.txt");
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Examples, TheSmallestHostWaitsForAPhoneAndLeaves) {
    support::enterTestFolder();
    support::Standin standin;
    standin.play("wait packet command 34 key KORUInfo\nnotify string phone-name \"Handset A\"\n");
    EXPECT_EQ(support::runProgram(support::programFolder() / "minimal_host.exe", {".", "30000"}), 0);
    EXPECT_NE(output().find("phone \"Handset A\""), std::string::npos);
    EXPECT_TRUE(standin.waitForEvent("exit"));
}

TEST(Examples, TheDemoHostSeesEverythingHappen) {
    support::enterTestFolder();
    EXPECT_EQ(support::runProgram(support::programFolder() / "demo_host.exe", {}), 0);
    const std::string shown = output();
    EXPECT_NE(shown.find("Everything happened as it should."), std::string::npos);
    // The picture: what the service sent, and after it what the host was told.
    const std::size_t sent = shown.find("│◀─────┤ #3  buffering-start 1\n");
    ASSERT_NE(sent, std::string::npos) << shown;
    EXPECT_NE(shown.find("◀ onEvent(200001, 0)   buffering started", sent), std::string::npos) << shown;
    EXPECT_NE(shown.find("├─────▶│ #0  KORUInfo {accountID \""), std::string::npos) << shown;
    EXPECT_EQ(shown.find('\x1b'), std::string::npos) << "colours, and this is no terminal";
}

TEST(Examples, TheDemoHostPlaysAnyScenarioAndDrawsAFloodAsAFewLines) {
    support::enterTestFolder();
    ASSERT_EQ(support::runProgram(support::programFolder() / "demo_host.exe",
                                  {"--scenario", "flood", "--color", "always"}),
              0);
    const std::string shown = output();
    EXPECT_NE(shown.find("⋮ 19996 more: to the library: change-mode"), std::string::npos) << shown;
    EXPECT_NE(shown.find("⋮ 19996 more: onEvent(200006"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\x1b[33m◀ onEvent(200003, 0)   first audio"), std::string::npos) << shown;
}

TEST(Examples, TheDemoHostFailsOnAScenarioThatIsNone) {
    support::enterTestFolder();
    EXPECT_EQ(support::runProgram(support::programFolder() / "demo_host.exe", {"--scenario", "floods"}), 1);
    EXPECT_NE(output().find("did you mean"), std::string::npos) << output();
}

} // namespace
