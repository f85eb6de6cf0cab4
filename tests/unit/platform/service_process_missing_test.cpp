// Built into a folder of its own, where no service stands beside the program.
#include "platform/service_process.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(ServiceMissing, StartWithoutAServiceBesideTheHostGivesNullAndTheCause) {
    constexpr int kFileNotFound = 2; // ERROR_FILE_NOT_FOUND, and ENOENT
    ASSERT_FALSE(std::filesystem::exists(support::programFolder() / "QuPCAudio.exe"));
    int systemError = 0;
    EXPECT_EQ(platform::ServiceProcess::start("the-logs", 2, systemError), nullptr);
    EXPECT_EQ(systemError, kFileNotFound);
}

} // namespace
