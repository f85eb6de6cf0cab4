// Built into a folder of its own, where no service stands beside the program.
#include "platform/service_process.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(ServiceMissing, StartWithoutAServiceBesideTheHostGivesNull) {
    ASSERT_FALSE(std::filesystem::exists(support::programFolder() / "QuPCAudio.exe"));
    EXPECT_EQ(platform::ServiceProcess::start("the-logs", 2), nullptr);
}

} // namespace
