#include "log/old_files.h"

#include "log/archive.h"
#include "log/log_folder.h"
#include "log/log_names.h"
#include "platform/path_text.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel::log4z {

namespace {

/// Kept for compatibility: on a new version every log with this in its name goes, whatever the logger is called. With
/// the logger's own name the logs of versions that named theirs differently would stay for good.
constexpr char kNamePartOfAnyVersion[] = "sonvia";

bool isArchive(const std::string& path) {
    return path.ends_with(kArchiveEnding);
}

} // namespace

void OldFiles::load(int id) {
    mHistory.clear();
    mNewestIsUncounted = false;
    if (clearIfVersionChanged()) {
        return;
    }
    readFolder();
    mServices.console.print("idx:%d historyLog size:%zu historyWrite:%llu byte", id, mHistory.count(),
                            static_cast<unsigned long long>(mHistory.writeLength()));
}

/// Also counts a file that was closed for another reason than its size or day (a changed setting, a full disk): it
/// would never be counted otherwise, and the folder would outgrow its limits.
void OldFiles::countNewest(bool isClean) {
    if (!mNewestIsUncounted) {
        return;
    }
    mNewestIsUncounted = false;
    if (mSettings.isZip && isClean) {
        try {
            archiveNewest();
        } catch (const std::bad_alloc&) {
            mServices.console.print("log: no memory to pack %s! \r\n", mHistory.newest().path.c_str());
        }
    }
    const std::string& newest = mHistory.newest().path;
    const std::optional<std::uint64_t> size = mServices.files.size(newest);
    // A full disk still makes empty files, one a second; each would take an older log's place among the 500.
    if (size == 0 && removeLog(newest)) {
        mHistory.dropNewest();
        return;
    }
    mHistory.countNewest(size.value_or(0));
}

void OldFiles::makeRoomFor(const std::string& path) {
    mHistory.dropEarlier(path);
    deleteOldest(path);
    if (mHistory.empty() || !isSameFile(mHistory.newest().path, path)) {
        mHistory.append(path, mServices.clock.now().seconds);
    }
    mNewestIsUncounted = true;
}

void OldFiles::deleteOldest(const std::string& current) {
    const Retention retention = mSettings.retention();
    const std::int64_t now = mServices.clock.now().seconds;
    for (;;) {
        bool tooLarge = false;
        const bool mustDelete = mHistory.mustDelete(retention, now, tooLarge);
        if (tooLarge) {
            mServices.console.print(
                "historyWriteLen:%llu historySizeMb:%u setLimitsizeMb:%u setTotalsizeMb:%u",
                static_cast<unsigned long long>(mHistory.writeLength()), mHistory.megabytes(),
                retention.limitSizeMb, retention.totalSizeMb);
        }
        if (!mustDelete || isSameFile(mHistory.oldest().path, current)) {
            break; // opened again under its old name: never the file being written
        }
        removeLog(mHistory.oldest().path);
        mHistory.dropOldest();
    }
}

/// A file that another process on the same folder is writing is left alone.
bool OldFiles::removeLog(const std::string& path) const {
    return !isBehindLink(path) && !mServices.files.isWritten(path) && mServices.files.remove(path);
}

/// Whether the folder of a file, below the logger's own, is a link: what it leads to is not the log's.
bool OldFiles::isBehindLink(const std::string& path) const {
    const std::size_t nameSize = platform::lastPathComponent(path).size();
    const std::string folder = path.substr(0, path.size() - nameSize);
    return !isSameFile(folder, mSettings.path) && isFolderLink(mServices.files, folder);
}

void OldFiles::archiveNewest() {
    platform::FileSystem& files = mServices.files;
    const std::uint64_t start = mServices.clock.steadyMilliseconds();
    const std::string log = mHistory.newest().path;
    const std::string archive = log + kArchiveEnding;
    if (files.size(archive).has_value()) {
        return; // of an earlier log of that name: it holds lines that are nowhere else
    }
    if (files.isWritten(log) || isBehindLink(log) || files.isLink(archive)) {
        return; // another process on the same folder writes it, or it is not the log's own
    }
    const bool whole = writeArchive(files, log, archive, mServices.clock.now().seconds);
    const std::uint64_t logSize = sizeOf(log);
    const std::uint64_t archiveSize = sizeOf(archive);
    if (whole && archiveSize < logSize) {
        files.remove(log);
        mHistory.renameNewest(archive);
    } else {
        files.remove(archive);
    }
    const double ratio = logSize == 0 ? 1.0 : static_cast<double>(archiveSize) / static_cast<double>(logSize);
    const std::uint64_t used = mServices.clock.steadyMilliseconds() - start;
    mServices.console.print(
        "logLen:%d zipLen:%d ratio%.2f usedTime:%d.%03dS historyWriteLen:%llu back second name:%s ",
        static_cast<int>(logSize), static_cast<int>(archiveSize), ratio, static_cast<int>(used / 1000),
        static_cast<int>(used % 1000), static_cast<unsigned long long>(mHistory.writeLength()),
        mHistory.newest().path.c_str());
}

bool OldFiles::clearIfVersionChanged() {
    platform::FileSystem& files = mServices.files;
    const std::string current = storedVersion(mSettings.version);
    const std::string last = readVersionFile(files, mSettings.path);
    mServices.console.print("curVer:[%d,%s] lstVer:[%d,%s]", static_cast<int>(current.size()),
                            current.c_str(), static_cast<int>(last.size()), last.c_str());
    if (current == last) {
        return false;
    }
    // Listed before the version is written: an allocation failure between the two would keep these logs for good.
    const std::vector<FoundLog> found = listLogs(files, mSettings.path, kNamePartOfAnyVersion, nullptr);
    // The folder is made here because it does not exist at the very first start; without the version in it the second
    // start would take the first one's logs for another version's. A version that cannot be written leaves the logs:
    // it would clear the folder at every start.
    if (isPathTooLong(files, mSettings) || !ensureFolder(files, mSettings.path) ||
        !writeVersionFile(files, mSettings.path, current)) {
        return false;
    }
    for (const FoundLog& log : found) {
        removeLog(log.path);
    }
    mServices.console.print("clear history num:%d", static_cast<int>(found.size()));
    return true;
}

void OldFiles::readFolder() {
    platform::FileSystem& files = mServices.files;
    std::vector<FoundLog> found = listLogs(files, mSettings.path, mSettings.name, &mServices.clock);
    // A truncated archive next to its log is what a process that ended while packing leaves: the log counts.
    const auto isLeftOver = [&](const FoundLog& log) {
        return isArchive(log.path) &&
               files.size(log.path.substr(0, log.path.size() + 1 - sizeof kArchiveEnding)).has_value() &&
               isTornArchive(files, log.path);
    };
    std::erase_if(found, [&](const FoundLog& log) { return isLeftOver(log) && files.remove(log.path); });
    std::sort(found.begin(), found.end(), [](const FoundLog& a, const FoundLog& b) {
        return a.time != b.time ? a.time < b.time : a.path < b.path;
    });
    for (FoundLog& log : found) {
        const bool packNow = mSettings.isZip && &log == &found.back() && !isArchive(log.path);
        mHistory.append(std::move(log.path), log.time);
        if (packNow) {
            archiveNewest();
        }
        mHistory.countNewest(sizeOf(mHistory.newest().path));
    }
}

} // namespace orvel::log4z
