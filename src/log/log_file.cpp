#include "log/log_file.h"

#include "log/log_folder.h"
#include "platform/path_text.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace orvel::log4z {

namespace {

/// Small enough to stay in a processor's own cache next to the records.
constexpr std::size_t kBufferSize = std::size_t{128} * 1024;

std::string folderOf(const std::string& path) {
    return path.substr(0, path.size() - platform::lastPathComponent(path).size());
}

} // namespace

bool LogFile::open(platform::FileSystem& files, const std::string& path) {
    close();
    if (mBuffer == nullptr) {
        mBuffer.reset(new char[kBufferSize]);
    }
    mFiles = &files;
    mPath = path;
    mIsClean = true;
    return openHere();
}

bool LogFile::openHere() {
    mFile = mFiles->open(mPath, platform::OpenMode::Append);
    if (mFile == nullptr) {
        return false;
    }
    mNameWasSeen = mFiles->size(mPath).has_value();
    mLength = mFile->size() + mUsed;
    return true;
}

bool LogFile::write(const char* line, std::size_t count) {
    if (count > kBufferSize - mUsed && !flush()) {
        loseLines(1);
        return false;
    }
    if (count > kBufferSize) {
        mLength += count;
        return writeOut(line, count, {count});
    }
    mLineEnds.push_back(mUsed + count); // first, because it may throw
    std::memcpy(mBuffer.get() + mUsed, line, count);
    mUsed += count;
    mLength += count;
    return true;
}

void LogFile::writeNote(const char* line, std::size_t count) {
    if (count <= kBufferSize - mUsed || flush()) {
        std::memcpy(mBuffer.get() + mUsed, line, count);
        mUsed += count;
        mLength += count;
    }
}

bool LogFile::flush() {
    const bool whole = mUsed == 0 || writeOut(mBuffer.get(), mUsed, mLineEnds);
    mUsed = 0; // what the file does not take is lost: a second try would write parts of it twice
    mLineEnds.clear();
    return whole;
}

void LogFile::close() {
    if (mFile != nullptr) {
        flush();
        closeFile();
    }
}

void LogFile::closeFile() {
    if (mFile != nullptr) {
        mIsClean = mFile->close() && mIsClean;
        mFile.reset();
    }
}

/// Creates the file again, with its folder.
void LogFile::recreate() {
    try {
        ensureFolder(*mFiles, folderOf(mPath));
        openHere();
    } catch (const std::bad_alloc&) {
        mFile.reset(); // the lines are lost, and counted
    }
}

bool LogFile::writeOut(const char* lines, std::size_t count, const std::vector<std::size_t>& ends) {
    // The system still takes what is written to a file that was deleted or moved, and nobody would find it. It is
    // closed first: Windows may keep the name of a deleted file until then.
    if (mNameWasSeen && !mFiles->size(mPath).has_value()) {
        closeFile();
        recreate();
    }
    const std::size_t taken = mFile == nullptr ? 0 : mFile->write(lines, count);
    if (taken == count) {
        mTakesLines = true;
        return true;
    }
    const auto isLost = [&](std::size_t end) { return end > taken; };
    loseLines(static_cast<std::uint64_t>(std::count_if(ends.begin(), ends.end(), isLost)));
    mIsClean = false;
    closeFile();
    return false;
}

void LogFile::loseLines(std::uint64_t count) {
    mTakesLines = false;
    mLinesLost.store(mLinesLost.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
}

} // namespace orvel::log4z
