#pragma once

#include "platform/file_system.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvel::log4z {

/// A log file that is being written, through one large buffer. Writer thread only, but for the count of lost lines.
class LogFile {
public:
    /// Opens for appending; false when that fails. An open file is closed first.
    bool open(platform::FileSystem& files, const std::string& path);

    bool isOpen() const { return mFile != nullptr; }

    /// Takes a line over; false when the file did not take all that was due to be written: lines are lost then, and
    /// the file is closed.
    bool write(const char* line, std::size_t count);

    /// As `write`, for a line of the log's own that is not counted when it is lost.
    void writeNote(const char* line, std::size_t count);

    /// Whether it is open and has taken all it was given since lines were last lost.
    bool takesLines() const { return mFile != nullptr && mTakesLines; }

    /// Hands what is buffered to the system; false as above.
    bool flush();

    /// Flushes and closes. Without effect when nothing is open.
    void close();

    /// Whether the file opened last has taken all that it was given, and its closing reported no error.
    bool isClean() const { return mIsClean; }

    /// The file's length, with what is still buffered.
    std::uint64_t length() const { return mLength; }

    /// So many lines were to be written and there was no file for them.
    void loseLines(std::uint64_t count);

    /// Lines that are not, or not whole, in any file. Thread: any.
    std::uint64_t linesLost() const { return mLinesLost.load(std::memory_order_relaxed); }

private:
    bool openHere();
    void makeAnew();
    bool writeOut(const char* lines, std::size_t count, const std::vector<std::size_t>& ends);
    void closeFile();

    platform::FileSystem* mFiles = nullptr;
    std::string mPath; ///< of the file opened last
    std::unique_ptr<platform::OpenFile> mFile;
    std::unique_ptr<char[]> mBuffer; ///< made at the first opening
    std::size_t mUsed = 0;
    std::vector<std::size_t>
        mLineEnds; ///< of the lines in the buffer: to tell which of them a full disk has taken
    std::atomic<std::uint64_t> mLinesLost{0};
    std::uint64_t mLength = 0;
    bool mNameWasSeen = false; ///< when it was opened: a folder closed to looks may take lines all the same
    bool mIsClean = true;
    bool mTakesLines = true; ///< false from a loss until a write succeeds
};

} // namespace orvel::log4z
