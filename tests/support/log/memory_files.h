#pragma once

#include "platform/file_system.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace support {

inline constexpr std::size_t kMb = 1048576;

/// Files in memory, any of whose calls a test can make fail. Both separators are understood. Any thread.
class MemoryFiles final : public platform::FileSystem {
public:
    /// Write is any write; WriteAt only one at a given place. Size is a path's, FileSize an open file's.
    enum class Call {
        Open,
        Write,
        WriteAt,
        Read,
        Size,
        FileSize,
        WriteThrough,
        Close,
        Remove,
        IsFolder,
        CreateFolders,
        List
    };

    enum class Kind {
        Partly,  ///< a write, a read or a listing stops half way; any other call just fails
        Refused, ///< denied, or the disk is full: nothing is done
        Gone,    ///< another program was quicker: what was to be removed is not there any more
    };

    /// The Nth call of that kind from now on fails (1 is the next); with `forEver` all later ones too.
    void failNth(Call call, int n, bool forEver = false, Kind kind = Kind::Partly);
    void failNothing();
    int calls(Call call) const;

    /// Does something in every call of that kind, under the lock of these files.
    void onEach(Call call, std::function<void()> action);

    /// Read failures: a file gives only so many bytes and then looks ended.
    void limitReads(std::size_t bytes) { mReadLimit = bytes; }

    /// What is opened from now on says that it is so long.
    void claimSize(std::uint64_t bytes) { mClaimedSize = bytes; }

    bool exists(const std::string& path) const;
    std::string content(const std::string& path) const;
    void put(const std::string& path, const std::string& content);
    void putShared(const std::string& path, std::shared_ptr<std::string> content); ///< without a copy
    std::vector<std::string> paths() const;                                        ///< of all files, sorted
    std::vector<std::string> pathsWith(const std::string& part) const;
    std::uint64_t totalSize(const std::string& part) const;

    std::uint64_t sizeReads() const { return mSizeReads; }

    std::size_t largestPiece() const { return mLargestPiece; }

    struct Removed {
        std::string path;
        std::string content;
        std::string archive; ///< what the archive of its name held at that time
    };

    /// All that `remove` has removed, once it has been asked for.
    void keepRemoved() { mKeepsRemoved = true; }

    std::vector<Removed> removed() const;

    void setLongestPath(std::size_t bytes) { mLongestPath = bytes; }

    void removeFolder(const std::string& folder); ///< with all that is in it

    std::unique_ptr<platform::OpenFile> open(const std::string& path, platform::OpenMode mode) override;
    std::optional<std::uint64_t> size(const std::string& path) override;
    bool isWritten(const std::string& path) override;
    bool remove(const std::string& path) override;
    bool isFolder(const std::string& path) override;

    bool isLink(const std::string& /*path*/) override { return false; } // the links' tests are on real files

    bool isTooLong(const std::string& path) override { return path.size() > mLongestPath; }

    bool createFolders(const std::string& path) override;
    std::vector<platform::FolderEntry> list(const std::string& folder) override;

private:
    friend class MemoryFile;

    struct Fault {
        int at = 0; ///< 0: none
        bool forEver = false;
        int calls = 0;
        Kind kind = Kind::Partly;
        std::function<void()> action;
    };

    bool fails(Call call);
    void addFolders(std::string folder);
    std::size_t allowed(Call call, std::size_t count);

    mutable std::mutex mLock;
    std::map<std::string, std::shared_ptr<std::string>> mFiles;
    std::multiset<const std::string*> mAppended; ///< contents that are open for appending
    std::set<std::string> mFolders;
    std::map<Call, Fault> mFaults;
    std::size_t mReadLimit = SIZE_MAX;
    std::size_t mLargestPiece = 0;
    std::size_t mLongestPath = SIZE_MAX;
    std::optional<std::uint64_t> mClaimedSize;
    std::uint64_t mSizeReads = 0;
    bool mKeepsRemoved = false;
    std::vector<Removed> mRemoved;
};

} // namespace support
