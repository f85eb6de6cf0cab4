#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// An open file, closed by its destructor. Owned by one thread at a time.
class OpenFile {
public:
    virtual ~OpenFile() = default;

    /// Writes at the end (a file opened for appending) or at the current position. Returns: the bytes written, fewer
    /// than asked when the disk is full or the medium is gone.
    virtual std::size_t write(const void* bytes, std::size_t count) = 0;

    /// Writes at `offset` from the start and leaves the position after the bytes written.
    virtual std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) = 0;

    /// Reads from the current position; fewer bytes than asked only at the end of the file or on an error.
    virtual std::size_t read(void* bytes, std::size_t count) = 0;

    /// The file's length in bytes; 0 when it cannot be read.
    virtual std::uint64_t size() = 0;

    /// Waits until everything written is on the medium; false when the system reports a failure.
    virtual bool writeThrough() = 0;

    /// Closes the file. False when the system reports that some of what was written may be missing. Nothing else may be
    /// called afterwards.
    virtual bool close() = 0;
};

enum class OpenMode {
    Append, ///< created when missing, written at the end
    Read,   ///< must exist
    Write,  ///< created when missing, emptied otherwise
};

struct FolderEntry {
    std::string name;
    bool isFolder = false; ///< of a link: its target's
    bool isLink = false;   ///< a symbolic link or a junction
};

/// The log's only access to files, so that a test can make the Nth call fail. Paths are narrow, in the process's code
/// page. No call changes the process's state (current folder, error mode).
class FileSystem {
public:
    virtual ~FileSystem() = default;

    /// Opens a file. Child processes do not inherit it, and other programs may read, write and delete it meanwhile.
    /// Returns: null when it cannot be opened, and when it is a link and would be written through.
    virtual std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) = 0;

    /// The length of a file; nothing when it does not exist or is not a file.
    virtual std::optional<std::uint64_t> size(const std::string& path) = 0;

    /// Whether this or another process has the file open for appending.
    virtual bool isWritten(const std::string& path) = 0;

    virtual bool remove(const std::string& path) = 0;

    virtual bool isFolder(const std::string& path) = 0;

    /// Whether the path itself is a symbolic link or a junction, whatever its target.
    virtual bool isLink(const std::string& path) = 0;

    /// Whether the system refuses a file's path because it is too long.
    virtual bool isTooLong(const std::string& path) = 0;

    /// Creates the folder with its parents; true when it exists afterwards.
    virtual bool createFolders(const std::string& path) = 0;

    /// Lists the folder without "." and ".."; empty when it cannot be read.
    virtual std::vector<FolderEntry> list(const std::string& folder) = 0;
};

/// The system's files. Lives until the process ends.
FileSystem& systemFiles();

} // namespace platform
