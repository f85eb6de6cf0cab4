#include "log/log_file.h"

#include <algorithm>
#include <cstring>

namespace orvel::log4z {

namespace {

/// Small enough to stay in a processor's own cache beside the records.
constexpr std::size_t kBufferSize = std::size_t{128} * 1024;

} // namespace

bool LogFile::open(platform::FileSystem& files, const std::string& path) {
    close();
    mFile = files.open(path, platform::OpenMode::Append);
    if (mFile == nullptr) {
        return false;
    }
    if (mBuffer == nullptr) {
        mBuffer.reset(new char[kBufferSize]);
    }
    mLength = mFile->size();
    return true;
}

bool LogFile::write(const char* line, std::size_t count) {
    mLength += count;
    if (count > kBufferSize - mUsed && !flush()) {
        loseLines(1);
        return false;
    }
    if (count > kBufferSize) {
        return writeOut(line, count, {count});
    }
    std::memcpy(mBuffer.get() + mUsed, line, count);
    mUsed += count;
    mLineEnds.push_back(mUsed);
    return true;
}

bool LogFile::flush() {
    const bool whole = mUsed == 0 || writeOut(mBuffer.get(), mUsed, mLineEnds);
    mUsed = 0; // what the file does not take is lost: trying again would write parts of it twice
    mLineEnds.clear();
    return whole;
}

void LogFile::close() {
    if (mFile != nullptr) {
        flush();
        mFile.reset();
    }
}

bool LogFile::writeOut(const char* lines, std::size_t count, const std::vector<std::size_t>& ends) {
    const std::size_t taken = mFile->write(lines, count);
    if (taken == count) {
        return true;
    }
    const auto isLost = [&](std::size_t end) { return end > taken; };
    loseLines(static_cast<std::uint64_t>(std::count_if(ends.begin(), ends.end(), isLost)));
    mFile.reset();
    return false;
}

void LogFile::loseLines(std::uint64_t count) {
    mLinesLost.store(mLinesLost.load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
}

} // namespace orvel::log4z
