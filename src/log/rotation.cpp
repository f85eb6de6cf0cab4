#include "log/rotation.h"

#include "log/archive.h"
#include "log/log_folder.h"
#include "log/log_names.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <string_view>

namespace orvel::log4z {

namespace {

constexpr std::int64_t kSecondsOfDay = 86400;
constexpr int kNameTries = 5;

/// In 32 bits on purpose: without a limit this gives 4293918720 bytes, so that a file stays below 4 GB.
std::uint32_t limitInBytes(std::uint32_t megabytes) {
    return megabytes << 20;
}

bool isArchive(const std::string& path) {
    constexpr std::string_view kEnding = kArchiveEnding;
    return path.size() >= kEnding.size() &&
           path.compare(path.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
}

} // namespace

bool Rotation::openFor(LoggerSlot& slot, std::int64_t lineTime) {
    if (fileTakes(slot, lineTime)) {
        return true;
    }
    settleNewest(slot);
    slot.openTime = lineTime;
    slot.openDay = platform::localMidnight(mClock, lineTime);
    const std::string folder =
        slot.monthdir ? slot.path + monthFolderName(mClock.toLocal(lineTime)) : slot.path;
    ensureFolder(mFiles, folder);
    const std::string path = chooseName(slot, folder);
    if (!slot.file.open(mFiles, path)) {
        static constexpr char kFrame[] = "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n";
        mConsole.report("%s", kFrame);
        mConsole.report("can not open log file %s. \r\n", path.c_str());
        mConsole.report("%s", kFrame);
        slot.outfile = false;
        slot.openFailed = true;
        return false;
    }
    slot.openedFull = slot.file.length() > limitInBytes(slot.limitSizeMb);
    slot.history.forgetEarlier(path);
    deleteOldFiles(slot, path);
    if (slot.history.empty() || !isSameFile(slot.history.newest().path, path)) {
        try {
            slot.history.append(path, mClock.now().seconds);
        } catch (const std::bad_alloc&) {
            slot.file.close(); // its lines would go to a file that no limit counts
            throw;
        }
    }
    slot.newestIsUncounted = true;
    return true;
}

bool Rotation::fileTakes(const LoggerSlot& slot, std::int64_t lineTime) const {
    if (!slot.file.isOpen() || !isOfTheFilesDay(slot, lineTime)) {
        return false;
    }
    // When every name of this second is in use, opening again would give the same file, once for every line.
    return slot.file.length() <= limitInBytes(slot.limitSizeMb) ||
           (slot.openedFull && lineTime == slot.openTime);
}

bool Rotation::isOfTheFilesDay(const LoggerSlot& slot, std::int64_t lineTime) const {
    if (lineTime < slot.openDay) {
        return false;
    }
    const std::int64_t end = slot.openDay + kSecondsOfDay;
    // Where clocks are put back a day has a 25th hour. It has a file of its own, but one: with a file for each of its
    // lines the 500 that are kept would soon be this hour's alone.
    return lineTime < end ||
           (slot.openTime >= end && platform::localMidnight(mClock, lineTime) == slot.openDay);
}

/// Closes the file if it is open, and counts it. A file that was closed for another reason (a changed setting, a full
/// disk) is counted here as well: else it would never be, and the folder would outgrow its limits.
void Rotation::settleNewest(LoggerSlot& slot) {
    slot.file.close();
    if (!slot.newestIsUncounted) {
        return;
    }
    slot.newestIsUncounted = false;
    if (slot.isZip && slot.file.isClean()) {
        try {
            archiveNewest(slot);
        } catch (const std::bad_alloc&) {
            mConsole.print("log: no memory to pack %s! \r\n", slot.history.newest().path.c_str());
        }
    }
    const std::string& newest = slot.history.newest().path;
    const std::optional<std::uint64_t> size = mFiles.size(newest);
    // A full disk still makes empty files, one a second; each would take an older log's place among the 500.
    if (size == 0 && removeLog(newest)) {
        slot.history.dropNewest();
        return;
    }
    slot.history.countNewest(size.value_or(0));
}

std::string Rotation::chooseName(const LoggerSlot& slot, const std::string& folder) const {
    std::string path;
    for (int attempt = 1; attempt <= kNameTries; ++attempt) {
        path = folder + logFileName(slot.name, mClock.toLocal(slot.openTime + attempt - 1));
        if (attempt > 1) {
            mConsole.print("tryCnt:%d buf:%s", attempt, path.c_str());
        }
        if (!isTaken(slot, path)) {
            break;
        }
    }
    return path;
}

bool Rotation::isTaken(const LoggerSlot& slot, const std::string& path) const {
    return sizeOf(path) > 0 || (slot.isZip && mFiles.size(path + kArchiveEnding).has_value());
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
        removeLog(slot.history.oldest().path);
        slot.history.dropOldest();
    }
}

/// A file that another process on the same folder is writing is left alone.
bool Rotation::removeLog(const std::string& path) {
    return !mFiles.isWritten(path) && mFiles.remove(path);
}

void Rotation::archiveNewest(LoggerSlot& slot) {
    const auto start = std::chrono::steady_clock::now();
    const std::string log = slot.history.newest().path;
    const std::string archive = log + kArchiveEnding;
    if (mFiles.size(archive).has_value()) {
        return; // of an earlier log of that name: it holds lines that are nowhere else
    }
    if (mFiles.isWritten(log)) {
        return; // by another process on the same folder
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
    ensureFolder(mFiles, slot.path);
    writeVersionFile(mFiles, slot.path, current);
    for (const FoundLog& log : found) {
        removeLog(log.path);
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
