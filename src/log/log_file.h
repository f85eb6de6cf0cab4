#pragma once

#include "platform/file_system.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvel::log4z {

/// A log file being written, through one large buffer. Writer thread only, except for `linesLost`.
class LogFile {
public:
    /// Opens for appending; false when that fails. An open file is closed first.
    bool open(platform::FileSystem& files, const std::string& path);

    bool isOpen() const { return mFile != nullptr; }

    /// Buffers a line, and writes the buffer out when it is full. False when the file did not take all of it: lines are
    /// lost, and the file is closed.
    bool write(const char* line, std::size_t count);

    /// As `write`, for a line of the log's own that is not counted when it is lost.
    void writeNote(const char* line, std::size_t count);

    /// Whether it is open and no line has been lost since it last took some.
    bool takesLines() const { return mFile != nullptr && mTakesLines; }

    /// Writes the buffer out; false as for `write`.
    bool flush();

    /// Flushes and closes. Without effect when nothing is open.
    void close();

    /// Whether the last file opened has taken every line, and closing it reported no error.
    bool isClean() const { return mIsClean; }

    /// The file's length, with what is still buffered.
    std::uint64_t length() const { return mLength; }

    /// Counts lines as lost.
    void loseLines(std::uint64_t count);

    /// Lines that are not, or not whole, in any file. Thread: any.
    std::uint64_t linesLost() const { return mLinesLost.load(std::memory_order_relaxed); }

private:
    bool openHere();
    void recreate();
    bool writeOut(const char* lines, std::size_t count, const std::vector<std::size_t>& ends);
    void closeFile();

    platform::FileSystem* mFiles = nullptr;
    std::string mPath; ///< of the file opened last
    std::unique_ptr<platform::OpenFile> mFile;
    std::unique_ptr<char[]> mBuffer; ///< made at the first opening
    std::size_t mUsed = 0;
    std::vector<std::size_t>
        mLineEnds; ///< of the lines in the buffer: shows which of them a full disk has taken
    std::atomic<std::uint64_t> mLinesLost{0};
    std::uint64_t mLength = 0;
    bool mNameWasSeen = false; ///< when it was opened: a folder that cannot be read may still take files
    bool mIsClean = true;
    bool mTakesLines = true; ///< false from a loss until a write succeeds
};

} // namespace orvel::log4z
