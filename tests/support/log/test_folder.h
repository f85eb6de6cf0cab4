#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace support {

/// A fresh folder of the running test's own under the working folder, removed with all in it at the end.
class TestFolder {
public:
    explicit TestFolder(const std::string& suffix = "") {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        mPath = std::string(info->test_suite_name()) + "." + info->name() + suffix;
        std::filesystem::remove_all(mPath);
        std::filesystem::create_directories(mPath);
    }

    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }

    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::string& path() const { return mPath; }

    std::string path(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

} // namespace support
