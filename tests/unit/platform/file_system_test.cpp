#include "platform/file_system.h"

#include "support/log/test_folder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#ifndef _WIN32
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#endif

using namespace support;
using platform::OpenMode;

namespace {

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST(SystemFiles, FoldersAreMadeWithTheirParentsAndListed) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    const std::string deep = folder.path("with spaces/and more/");
    EXPECT_FALSE(files.isFolder(deep));
    EXPECT_TRUE(files.createFolders(deep));
    EXPECT_TRUE(files.createFolders(deep)) << "again";
    EXPECT_TRUE(files.isFolder(deep));
    ASSERT_NE(files.open(deep + "a.log", OpenMode::Append), nullptr);
    EXPECT_FALSE(files.createFolders(deep + "a.log/below")) << "a file is in the way";
    const auto entries = files.list(folder.path("with spaces"));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].name, "and more");
    EXPECT_TRUE(entries[0].isFolder);
    EXPECT_TRUE(files.list(folder.path("missing")).empty());
}

TEST(SystemFiles, AnAppendedFileIsReadByOthersWhileItIsOpen) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    const std::string path = folder.path("a.log");
    auto first = files.open(path, OpenMode::Append);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->write("one\r\n", 5), 5u);
    EXPECT_EQ(readAll(path), "one\r\n") << "no newline is translated";
    auto second = files.open(path, OpenMode::Append); // two processes may log to one folder
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->write("two\r\n", 5), 5u);
    EXPECT_EQ(first->write("three\r\n", 7), 7u);
    EXPECT_EQ(readAll(path), "one\r\ntwo\r\nthree\r\n");
    EXPECT_EQ(first->size(), 17u);
    EXPECT_EQ(files.size(path), 17u);
    EXPECT_EQ(files.size(folder.path("missing")), std::nullopt);
    EXPECT_EQ(files.size(folder.path()), std::nullopt) << "a folder is no file";
}

TEST(SystemFiles, AWrittenFileIsEmptiedAndPatchedInPlace) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    const std::string path = folder.path("a.zip");
    std::ofstream(path) << "something longer from before";
    auto file = files.open(path, OpenMode::Write);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->writeAt(0, "abcdef", 6), 6u);
    EXPECT_EQ(file->writeAt(2, "XY", 2), 2u);
    EXPECT_EQ(file->write("Z", 1), 1u);
    file.reset();
    EXPECT_EQ(readAll(path), "abXYZf");
    auto reader = files.open(path, OpenMode::Read);
    char text[16];
    EXPECT_EQ(reader->read(text, sizeof text), 6u);
    EXPECT_EQ(reader->read(text, sizeof text), 0u);
    reader.reset();
    EXPECT_TRUE(files.remove(path));
    EXPECT_FALSE(files.remove(path));
    EXPECT_EQ(files.open(path, OpenMode::Read), nullptr);
}

TEST(SystemFiles, AnOpenLogMayBeDeletedByTheUser) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    const std::string path = folder.path("a.log");
    auto file = files.open(path, OpenMode::Append);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(files.remove(path));
    EXPECT_EQ(file->write("x", 1), 1u);
}

TEST(SystemFiles, AFileIsWrittenWhileSomebodyHasItOpenForAppending) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    const std::string path = folder.path("a.log");
    EXPECT_FALSE(files.isWritten(path)) << "there is none";
    auto first = files.open(path, OpenMode::Append);
    auto second = files.open(path, OpenMode::Append);
    ASSERT_TRUE(first != nullptr && second != nullptr);
    EXPECT_TRUE(files.isWritten(path));
    EXPECT_TRUE(first->writeThrough());
    EXPECT_TRUE(first->close());
    EXPECT_TRUE(files.isWritten(path)) << "by the second";
    second.reset();
    EXPECT_FALSE(files.isWritten(path));
    const auto reader = files.open(path, OpenMode::Read);
    EXPECT_FALSE(files.isWritten(path)) << "who reads does not write";
}

#ifndef _WIN32
TEST(SystemFiles, ChildProcessesDoNotInheritThem) {
    TestFolder folder;
    auto file = platform::systemFiles().open(folder.path("a.log"), OpenMode::Append);
    int found = 0;
    DIR* descriptors = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(descriptors)) {
        char target[4096];
        const ssize_t length =
            ::readlink((std::string("/proc/self/fd/") + entry->d_name).c_str(), target, sizeof target);
        if (length > 0 && std::string(target, static_cast<std::size_t>(length)).ends_with("/a.log")) {
            ++found;
            EXPECT_NE(::fcntl(std::stoi(entry->d_name), F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    ::closedir(descriptors);
    EXPECT_EQ(found, 1);
}
#endif
