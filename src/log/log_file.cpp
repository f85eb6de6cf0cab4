#include "log/log_file.h"

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

bool LogFile::write(const char* bytes, std::size_t count) {
    mLength += count;
    if (count > kBufferSize - mUsed && !flush()) {
        return false;
    }
    if (count > kBufferSize) {
        return writeOut(bytes, count);
    }
    std::memcpy(mBuffer.get() + mUsed, bytes, count);
    mUsed += count;
    return true;
}

bool LogFile::flush() {
    const std::size_t count = mUsed;
    mUsed = 0; // what the file does not take is lost: trying again would write parts of it twice
    return count == 0 || writeOut(mBuffer.get(), count);
}

void LogFile::close() {
    if (mFile != nullptr) {
        flush();
        mFile.reset();
    }
}

bool LogFile::writeOut(const char* bytes, std::size_t count) {
    if (mFile->write(bytes, count) == count) {
        return true;
    }
    mFile.reset();
    return false;
}

} // namespace orvel::log4z
