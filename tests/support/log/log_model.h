// What the log's files must look like, as a plain model: one logger, its settings, and the lines one after the other. Slow,
// without threads and without faults. Times are UTC.
#pragma once

#include "log/history.h"
#include "support/log/memory_files.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace support {

struct ModelSettings {
    std::string name = "sonvia_Test";
    std::string path = "logs/";
    std::string version;
    int level = 1;
    bool enable = true;
    bool outfile = true;
    bool monthdir = false;
    bool zip = false;
    std::uint32_t limitMb = 2;
    std::uint32_t totalMb = 5;
    std::int64_t reserve = 0;
    int type = orvel::log4z::kReserveBySizeOrTime;
};

/// The library's way to the files: it keeps each archive as it was when it was closed, so that the model can look into
/// one that was deleted again at once. To be asked when the writer is known to be idle.
class PackedArchives final : public platform::FileSystem {
public:
    explicit PackedArchives(MemoryFiles& disk) : mDisk(disk) {}

    /// The archive packed next, oldest first; nothing when there is none, or when it has another path.
    std::optional<std::string> take(const std::string& path);

    /// Whether all have been taken.
    bool empty() const { return mArchives.empty(); }

    std::unique_ptr<platform::OpenFile> open(const std::string& path, platform::OpenMode mode) override;

    std::optional<std::uint64_t> size(const std::string& path) override { return mDisk.size(path); }

    bool isWritten(const std::string& path) override { return mDisk.isWritten(path); }

    bool remove(const std::string& path) override { return mDisk.remove(path); }

    bool isFolder(const std::string& path) override { return mDisk.isFolder(path); }

    bool isLink(const std::string& path) override { return mDisk.isLink(path); }

    bool isTooLong(const std::string& path) override { return mDisk.isTooLong(path); }

    bool createFolders(const std::string& path) override { return mDisk.createFolders(path); }

    std::vector<platform::FolderEntry> list(const std::string& folder) override { return mDisk.list(folder); }

private:
    class OpenArchive;

    struct Archive {
        std::string path;
        std::string bytes;
    };

    MemoryFiles& mDisk;
    std::deque<Archive> mArchives;
};

class LogModel {
public:
    explicit LogModel(PackedArchives& archives) : mArchives(archives) {}

    struct Entry {
        std::string path;
        std::int64_t time;
        std::uint64_t size; ///< 0 while the file is written for the first time
    };

    /// The logger starts, or is asked to read its history again.
    void load(std::int64_t now);

    /// `time` is the line's own, `now` that of its writing.
    void line(int level, const std::string& text, std::int64_t time, std::int64_t now);

    /// A setting was changed: the next line opens its file anew.
    void close() { mOpenPath.clear(); }

    /// The sum of the sizes in the history.
    std::uint64_t historyBytes() const;

    std::map<std::string, std::string> files; ///< by modelPath
    ModelSettings settings;
    std::vector<Entry> history; ///< oldest first
    std::string wrong;          ///< logs whose archive was not made, or does not hold them

private:
    void open(std::int64_t time, std::int64_t now);
    std::string freeName(std::int64_t time) const;
    void settle(std::int64_t now);
    void packNewest(std::int64_t now);
    bool mustDelete(std::int64_t now) const;
    bool openFileTakes(std::int64_t time) const;
    std::vector<std::string> listed(const std::string& namePart) const;
    std::uint64_t sizeOf(const std::string& path) const;

    PackedArchives& mArchives;
    std::string mOpenPath; ///< empty when no file is open
    std::int64_t mOpenTime = 0;
    bool mOpenedFull = false;
    bool mNewestUncounted = false;
};

/// One way to write a path: no empty components, single forward slashes.
std::string modelPath(const std::string& text);

/// The time in a file's name, parsed independently.
std::optional<std::int64_t> modelTimeInName(const std::string& name);

} // namespace support
