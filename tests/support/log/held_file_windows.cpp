#include "support/log/held_file.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace support {

HeldFile::HeldFile(std::string path) : mPath(std::move(path)) {
    mHandle = CreateFileA(mPath.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                          FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(mHandle, INVALID_HANDLE_VALUE) << mPath;
}

HeldFile::~HeldFile() {
    CloseHandle(mHandle);
    DeleteFileA(mPath.c_str());
}

} // namespace support
