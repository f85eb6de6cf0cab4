#pragma once

#include "platform/file_system.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace orvel::log4z {

/// A log file that is being written, through one large buffer. Writer thread only.
class LogFile {
public:
    /// Opens for appending; false when that fails. An open file is closed first.
    bool open(platform::FileSystem& files, const std::string& path);

    bool isOpen() const { return mFile != nullptr; }

    /// Takes the bytes over; false when the file did not take all that was due to be written: lines are lost then,
    /// and the file is closed.
    bool write(const char* bytes, std::size_t count);

    /// Hands what is buffered to the system; false as above.
    bool flush();

    /// Flushes and closes. Without effect when nothing is open.
    void close();

    /// The file's length, with what is still buffered.
    std::uint64_t length() const { return mLength; }

private:
    bool writeOut(const char* bytes, std::size_t count);

    std::unique_ptr<platform::OpenFile> mFile;
    std::unique_ptr<char[]> mBuffer; ///< made at the first opening
    std::size_t mUsed = 0;
    std::uint64_t mLength = 0;
};

} // namespace orvel::log4z
