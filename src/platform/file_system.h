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

    /// Writes at the end (a file opened for appending) or at the present place; returns the bytes written, fewer than
    /// asked when the disk is full or the medium is gone.
    virtual std::size_t write(const void* bytes, std::size_t count) = 0;

    /// Writes at `offset` from the start and leaves the present place behind the bytes written.
    virtual std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) = 0;

    /// Reads from the present place; fewer bytes than asked only at the end of the file or on an error.
    virtual std::size_t read(void* bytes, std::size_t count) = 0;

    /// The file's length in bytes; 0 when it cannot be read.
    virtual std::uint64_t size() = 0;

    /// Waits until all that was written is on the medium; false when the system reports that it is not.
    virtual bool writeThrough() = 0;

    /// Closes the file before its destructor would; false when the system reports that not all that was written may be
    /// there. Nothing else may be called afterwards.
    virtual bool close() = 0;
};

enum class OpenMode {
    Append, ///< made when missing, written at the end
    Read,   ///< must exist
    Write,  ///< made when missing, emptied otherwise
};

struct FolderEntry {
    std::string name;
    bool isFolder = false; ///< what a link leads to may be one
    bool isLink = false;   ///< a symbolic link or a junction
};

/// The log's only way to files, so that a test can make the Nth call fail. Paths are narrow, in the process's code
/// page. No call leaves the process's state (current folder, error mode) changed.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    /// Null when the file cannot be opened, and for a link that would be written through. Child processes do not inherit it, and other programs may read, write
    /// and delete the file meanwhile.
    virtual std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) = 0;

    /// The length of a file; nothing when it does not exist or is not a file.
    virtual std::optional<std::uint64_t> size(const std::string& path) = 0;

    /// Whether somebody, of this process or of another, has the file open for appending and would go on writing to it.
    virtual bool isWritten(const std::string& path) = 0;

    virtual bool remove(const std::string& path) = 0;

    virtual bool isFolder(const std::string& path) = 0;

    /// Whether the path itself is a symbolic link or a junction, wherever that leads.
    virtual bool isLink(const std::string& path) = 0;

    /// Whether the system refuses a file's path for its length.
    virtual bool isTooLong(const std::string& path) = 0;

    /// Makes the folder with its parents; true when it exists afterwards.
    virtual bool createFolders(const std::string& path) = 0;

    /// What the folder holds, without "." and ".."; empty when it cannot be read.
    virtual std::vector<FolderEntry> list(const std::string& folder) = 0;
};

/// The system's files. Lives until the process ends.
FileSystem& systemFiles();

} // namespace platform
