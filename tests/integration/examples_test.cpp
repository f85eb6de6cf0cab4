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
    EXPECT_NE(output().find("Everything happened as it should."), std::string::npos);
}

} // namespace
