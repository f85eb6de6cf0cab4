// What becomes of a logger's old files: deleting, packing and finding them again.

#include "log/archive.h"
#include "log/log_folder.h"
#include "log/log_names.h"
#include "log/rotation.h"
#include "platform/path_text.h"

#include <algorithm>
#include <chrono>
#include <string_view>

namespace orvel::log4z {

namespace {

bool isArchive(const std::string& path) {
    constexpr std::string_view kEnding = kArchiveEnding;
    return path.size() >= kEnding.size() &&
           path.compare(path.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
}

} // namespace

/// Whether the folder of a file, below the logger's own, is a link: what it leads to is not the log's.
bool Rotation::isBehindLink(const LoggerSlot& slot, const std::string& path) {
    const std::size_t nameSize = platform::lastPathComponent(path).size();
    const std::string folder = path.substr(0, path.size() - nameSize);
    return !isSameFile(folder, slot.path) && isLink(folder);
}

void Rotation::deleteOldFiles(LoggerSlot& slot, const std::string& current) {
    const Retention retention = slot.retention();
    const std::int64_t now = mClock.now().seconds;
    for (;;) {
        bool tooLarge = false;
        const bool mustDelete = slot.history.mustDelete(retention, now, tooLarge);
        if (tooLarge) {
            mConsole.print("historyWriteLen:%llu historySizeMb:%u setLimitsizeMb:%u setTotalsizeMb:%u",
                           static_cast<unsigned long long>(slot.history.writeLength()),
                           slot.history.megabytes(), retention.limitSizeMb, retention.totalSizeMb);
        }
        if (!mustDelete || isSameFile(slot.history.oldest().path, current)) {
            break; // opened again under its old name: never the file being written
        }
        removeLog(slot, slot.history.oldest().path);
        slot.history.dropOldest();
    }
}

/// A file that another process on the same folder is writing is left alone.
bool Rotation::removeLog(const LoggerSlot& slot, const std::string& path) {
    return !isBehindLink(slot, path) && !mFiles.isWritten(path) && mFiles.remove(path);
}

void Rotation::archiveNewest(LoggerSlot& slot) {
    const auto start = std::chrono::steady_clock::now();
    const std::string log = slot.history.newest().path;
    const std::string archive = log + kArchiveEnding;
    if (mFiles.size(archive).has_value()) {
        return; // of an earlier log of that name: it holds lines that are nowhere else
    }
    if (mFiles.isWritten(log) || isBehindLink(slot, log) || mFiles.isLink(archive)) {
        return; // another process on the same folder writes it, or it is not the log's own
    }
    const bool whole = writeArchive(mFiles, log, archive, mClock.now().seconds);
    const std::uint64_t logSize = sizeOf(log);
    const std::uint64_t archiveSize = sizeOf(archive);
    if (whole && archiveSize < logSize) {
        mFiles.remove(log);
        slot.history.renameNewest(archive);
    } else {
        mFiles.remove(archive);
    }
    const double ratio = logSize == 0 ? 1.0 : static_cast<double>(archiveSize) / static_cast<double>(logSize);
    const auto used =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    mConsole.print(
        "logLen:%d zipLen:%d ratio%.2f usedTime:%d.%03dS historyWriteLen:%llu back second name:%s ",
        static_cast<int>(logSize), static_cast<int>(archiveSize), ratio, static_cast<int>(used / 1000),
        static_cast<int>(used % 1000), static_cast<unsigned long long>(slot.history.writeLength()),
        slot.history.newest().path.c_str());
}

void Rotation::loadHistory(int id, LoggerSlot& slot) {
    slot.history.clear();
    slot.newestIsUncounted = false;
    if (versionChanged(slot)) {
        return;
    }
    readFolder(slot);
    mConsole.print("idx:%d historyLog size:%zu historyWrite:%llu byte", id, slot.history.count(),
                   static_cast<unsigned long long>(slot.history.writeLength()));
}

/// Clears the folder of another version's logs.
bool Rotation::versionChanged(LoggerSlot& slot) {
    const std::string current = storedVersion(slot.version);
    const std::string last = readVersionFile(mFiles, slot.path);
    mConsole.print("curVer:[%d,%s] lstVer:[%d,%s]", static_cast<int>(current.size()), current.c_str(),
                   static_cast<int>(last.size()), last.c_str());
    if (current == last) {
        return false;
    }
    // Listed before the version is written: an allocation failure between the two would keep these logs for good.
    const std::vector<FoundLog> found = listLogs(mFiles, slot.path, "sonvia", nullptr);
    // At the very first start the folder is not there yet; without the version in it the second start would take the
    // first one's logs for another version's.
    // A version that could not be written would clear the folder at every start.
    if (isTooLong(slot) || !ensureFolder(mFiles, slot.path) ||
        !writeVersionFile(mFiles, slot.path, current)) {
        return false;
    }
    for (const FoundLog& log : found) {
        removeLog(slot, log.path);
    }
    mConsole.print("clear history num:%d", static_cast<int>(found.size()));
    return true;
}

void Rotation::readFolder(LoggerSlot& slot) {
    std::vector<FoundLog> found = listLogs(mFiles, slot.path, slot.name, &mClock);
    // Half an archive beside its log is what a process that ended while packing has left: the log counts.
    const auto isLeftOver = [&](const FoundLog& log) {
        return isArchive(log.path) &&
               mFiles.size(log.path.substr(0, log.path.size() + 1 - sizeof kArchiveEnding)).has_value() &&
               isTornArchive(mFiles, log.path);
    };
    std::erase_if(found, [&](const FoundLog& log) { return isLeftOver(log) && mFiles.remove(log.path); });
    std::sort(found.begin(), found.end(), [](const FoundLog& a, const FoundLog& b) {
        return a.time != b.time ? a.time < b.time : a.path < b.path;
    });
    for (FoundLog& log : found) {
        const bool packNow = slot.isZip && &log == &found.back() && !isArchive(log.path);
        slot.history.append(std::move(log.path), log.time);
        if (packNow) {
            archiveNewest(slot);
        }
        slot.history.countNewest(sizeOf(slot.history.newest().path));
    }
}

} // namespace orvel::log4z
