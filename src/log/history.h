#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace orvel::log4z {

/// Which test decides that old files are deleted.
enum ReserveDelType : std::int32_t {
    kReserveBySize = 0,
    kReserveByTime = 1,
    kReserveBySizeOrTime = 2,
    kReserveBySizeAndTime = 3,
};

/// As a limit in megabytes: none.
inline constexpr std::uint32_t kNoLimit = 4294967295U;

/// The settings that decide which old files are deleted.
struct Retention {
    ReserveDelType type = kReserveBySizeOrTime;
    std::uint32_t limitSizeMb = 2; ///< of the file being written
    std::uint32_t totalSizeMb = 5; ///< of all files
    std::int64_t reserveSeconds = 0;
};

struct HistoryEntry {
    std::string path;
    std::int64_t time = 0;
    std::uint64_t countedSize = 0; ///< its share of the history's write length
};

/// Whether two paths name the same file: a listed one and one composed here may differ in their separators.
bool isSameFile(std::string_view a, std::string_view b);

/// A logger's older files, oldest first, with their total size. Writer thread only.
///
/// Each entry keeps what it added to the total, and that is subtracted when it goes. A user may delete or truncate old
/// files at any time: if their size on disk were subtracted instead, the total would stay too high for good, and files
/// would be deleted too early from then on.
class History {
public:
    static constexpr std::size_t kMaxEntries = 500;

    bool empty() const { return mEntries.empty(); }

    std::size_t count() const { return mEntries.size(); }

    std::uint64_t writeLength() const { return mWriteLength; }

    const HistoryEntry& oldest() const { return mEntries.front(); }

    const HistoryEntry& newest() const { return mEntries.back(); }

    void clear();

    /// Appends a file, with a size of 0 until `countNewest`.
    void append(std::string path, std::int64_t time);

    /// Lets the newest entry name its archive.
    void renameNewest(std::string path) { mEntries.back().path = std::move(path); }

    /// Removes earlier entries for a file that is about to become the newest again: a reused name is still one file.
    /// Keeps the newest entry in any case.
    void dropEarlier(const std::string& path);

    /// Sets the size that the newest entry adds to the total.
    void countNewest(std::uint64_t size);

    /// Removes the newest entry.
    void dropNewest();

    /// Removes the oldest entry.
    void dropOldest();

    /// Whether the oldest file is to be deleted. `tooLarge` is set when the size test was made and holds, so that its
    /// numbers are reported; with "size-and-Time" also when the age test keeps the file.
    bool mustDelete(const Retention& retention, std::int64_t now, bool& tooLarge) const;

    /// The total in whole megabytes.
    std::uint32_t megabytes() const { return static_cast<std::uint32_t>(mWriteLength >> 20); }

private:
    bool isTooLarge(const Retention& retention) const;
    bool isTooOld(const Retention& retention, std::int64_t now) const;

    std::deque<HistoryEntry> mEntries;
    std::uint64_t mWriteLength = 0;
};

} // namespace orvel::log4z
