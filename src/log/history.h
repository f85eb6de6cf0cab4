#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace orvel::log4z {

/// When old files are deleted.
enum ReserveDelType : std::int32_t {
    kReserveBySize = 0,
    kReserveByTime = 1,
    kReserveBySizeOrTime = 2,
    kReserveBySizeAndTime = 3,
};

/// What stands for "no limit" where a limit in megabytes is given.
inline constexpr std::uint32_t kNoLimit = 4294967295u;

/// The settings that decide about old files.
struct Retention {
    ReserveDelType type = kReserveBySizeOrTime;
    std::uint32_t limitSizeMb = 2; ///< of the file being written
    std::uint32_t totalSizeMb = 5; ///< of all files
    std::int64_t reserveSeconds = 0;
};

struct HistoryEntry {
    std::string path;
    std::int64_t time = 0;
    std::uint64_t countedSize = 0; ///< its part of the history's write length
};

/// Whether two paths name one file: a listed one and one put together here may differ in their separators.
bool isSameFile(std::string_view a, std::string_view b);

/// A logger's older files, oldest first, with their total size. Writer thread only.
///
/// Each entry keeps what it added to the total. A user may delete or cut old files at any time; were the size on disk
/// taken off instead, the total would keep the difference for ever and files would be deleted too early from then on.
class History {
public:
    static constexpr std::size_t kMaxEntries = 500;

    bool empty() const { return mEntries.empty(); }

    std::size_t count() const { return mEntries.size(); }

    std::uint64_t writeLength() const { return mWriteLength; }

    const HistoryEntry& oldest() const { return mEntries.front(); }

    const HistoryEntry& newest() const { return mEntries.back(); }

    void clear();

    /// Appends a file whose size is not counted yet.
    void append(std::string path, std::int64_t time);

    /// The newest entry names another file from now on: its log has been packed.
    void renameNewest(std::string path) { mEntries.back().path = std::move(path); }

    /// Forgets a file that is about to become the newest once more: a name used again is still one file. The newest
    /// entry stays in any case.
    void forgetEarlier(const std::string& path);

    /// Counts the newest entry with this size; a second time it counts with the new size only.
    void countNewest(std::uint64_t size);

    /// Forgets the newest entry.
    void dropNewest();

    /// Forgets the oldest entry.
    void dropOldest();

    /// Whether the oldest file is to be deleted. `tooLarge`: the size test was made and holds, so its numbers are to be
    /// shown; with "size-and-Time" also when the age test keeps the file.
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
