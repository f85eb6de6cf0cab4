#include "log/archive.h"

#include "support/log/memory_files.h"
#include "support/log/test_folder.h"

#include <gtest/gtest.h>
#include <miniz.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

using namespace support;
using orvel::log4z::writeArchive;

namespace {

constexpr std::int64_t kTime = 1'772'000'000;

std::string logText(std::size_t size) {
    std::mt19937 random(7);
    std::string text;
    while (text.size() < size) {
        text += "03-09 08:00:00." + std::to_string(100 + random() % 900) +
                " [host] [1234] INFO  Sonvia_PCAudioMessage: [QuPCAudioMessage::handlePlayerState:" +
                std::to_string(random() % 500) + "]Player state is " + std::to_string(random() % 7) + ".\r\n";
    }
    text.resize(size);
    return text;
}

std::string noise(std::size_t size) {
    std::mt19937 random(11);
    std::string text(size, '\0');
    for (char& c : text) {
        c = static_cast<char>(random());
    }
    return text;
}

/// The only member of an archive, its name in `name`; fails the test when there is another.
std::string unpacked(const std::string& archive, std::string& name) {
    mz_zip_archive zip;
    mz_zip_zero_struct(&zip);
    EXPECT_TRUE(mz_zip_reader_init_mem(&zip, archive.data(), archive.size(), 0));
    EXPECT_EQ(mz_zip_reader_get_num_files(&zip), 1u);
    mz_zip_archive_file_stat status;
    EXPECT_TRUE(mz_zip_reader_file_stat(&zip, 0, &status));
    name = status.m_filename;
    std::string text(static_cast<std::size_t>(status.m_uncomp_size), '\0');
    EXPECT_TRUE(mz_zip_reader_extract_to_mem(&zip, 0, text.data(), text.size(), 0));
    mz_zip_reader_end(&zip);
    return text;
}

} // namespace

TEST(Archive, GivesBackTheLogByteForByte) {
    MemoryFiles files;
    for (const std::string& text :
         {logText(1), logText(4), logText(65536), logText(2097153), noise(300000)}) {
        files.put("logs/2026_03/a.log", text);
        ASSERT_TRUE(writeArchive(files, "logs/2026_03/a.log", "logs/2026_03/a.log.zip", kTime));
        std::string name;
        EXPECT_EQ(unpacked(files.content("logs/2026_03/a.log.zip"), name), text) << text.size();
        EXPECT_EQ(name, "a.log") << "the member has no folder";
        EXPECT_EQ(files.content("logs/2026_03/a.log"), text) << "the log is not touched";
    }
}

TEST(Archive, ItsPiecesDoNotGrowWithTheLog) {
    MemoryFiles files;
    files.createFolders("logs");
    const std::string text = noise(3 * 1048576);
    files.put("logs/a.log", text);
    MemoryFiles measured;
    measured.put("logs/a.log", text);
    ASSERT_TRUE(writeArchive(measured, "logs/a.log", "logs/a.log.zip", kTime));
    EXPECT_LE(measured.largestPiece(), 128u * 1024);
}

TEST(Archive, AMissingLogOrAFolderThatTakesNoFileGivesNone) {
    MemoryFiles files;
    files.createFolders("logs");
    EXPECT_FALSE(writeArchive(files, "logs/a.log", "logs/a.log.zip", kTime));
    EXPECT_FALSE(files.exists("logs/a.log.zip")) << "no archive is begun without a log";
    files.put("logs/a.log", "text");
    EXPECT_FALSE(writeArchive(files, "logs/a.log", "nowhere/a.log.zip", kTime));
}

TEST(Archive, ALogWhoseLengthCannotBeReadIsNotPackedAsAnEmptyOne) {
    MemoryFiles files;
    files.put("logs/a.log", "the only copy of these lines");
    files.failNth(MemoryFiles::Call::FileSize, 1);
    EXPECT_FALSE(writeArchive(files, "logs/a.log", "logs/a.log.zip", 1700000000));
    EXPECT_TRUE(writeArchive(files, "logs/a.log", "logs/a.log.zip", 1700000000));
}

TEST(Archive, EveryFailingWriteIsNoticed) {
    const std::string text = logText(300000);
    for (int failing = 1;; ++failing) {
        MemoryFiles files;
        files.put("logs/a.log", text);
        files.failNth(MemoryFiles::Call::Write, failing);
        const bool whole = writeArchive(files, "logs/a.log", "logs/a.log.zip", kTime);
        if (files.calls(MemoryFiles::Call::Write) < failing) {
            EXPECT_TRUE(whole);
            EXPECT_GT(failing, 4);
            break;
        }
        EXPECT_FALSE(whole) << "write " << failing;
    }
}

#ifndef _WIN32
// Other programs' readers; under Wine there are none, and the archives are the same bytes.
TEST(Archive, OpensInOtherPrograms) {
    TestFolder folder;
    platform::FileSystem& files = platform::systemFiles();
    for (const std::string& text : {logText(5), logText(100000), logText(2097152), noise(100000)}) {
        const std::string log = folder.path("sonvia_a_2026-03-09-08-00-00.log");
        std::ofstream(log, std::ios::binary) << text;
        ASSERT_TRUE(writeArchive(files, log, log + ".zip", kTime));
        EXPECT_EQ(std::system(("unzip -tq '" + log + ".zip' >/dev/null").c_str()), 0);
        const std::string compare = "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.argv[2]); "
                                    "sys.exit(z.testzip() is not None or "
                                    "z.namelist() != ['sonvia_a_2026-03-09-08-00-00.log'] or "
                                    "z.read(z.namelist()[0]) != open(sys.argv[1], 'rb').read())\" '";
        EXPECT_EQ(std::system((compare + log + "' '" + log + ".zip'").c_str()), 0);
    }
}
#endif
