// Built into a folder of its own, without the stand-in service.
#include "platform/process.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(ProcessMissing, StartWithoutTheProgramNextToTheHostGivesNullAndTheCause) {
    constexpr int kFileNotFound = 2; // ERROR_FILE_NOT_FOUND, and ENOENT
    ASSERT_FALSE(std::filesystem::exists(support::programFolder() / "QuPCAudio.exe"));
    int systemError = 0;
    EXPECT_EQ(platform::Process::start("QuPCAudio.exe", {}, systemError), nullptr);
    EXPECT_EQ(systemError, kFileNotFound);
}

} // namespace
