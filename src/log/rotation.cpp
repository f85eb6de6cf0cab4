#include "log/rotation.h"

#include "log/log_folder.h"
#include "log/log_names.h"
#include "platform/path_text.h"

#include <new>

namespace orvel::log4z {

namespace {

constexpr std::int64_t kSecondsOfDay = 86400;
constexpr int kNameTries = 5;

/// In 32 bits on purpose: without a limit this gives 4293918720 bytes, so that a file stays below 4 GB.
std::uint32_t limitInBytes(std::uint32_t megabytes) {
    return megabytes << 20;
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
    const char* const obstacle = prepareFolder(slot, folder);
    const std::string path = chooseName(slot, folder);
    if (obstacle != nullptr || !slot.file.open(mFiles, path)) {
        giveUp(slot, path, obstacle == nullptr ? "no file of its name can be opened" : obstacle);
        return false;
    }
    slot.openedFull = slot.file.length() > limitInBytes(slot.limitSizeMb);
    slot.history.forgetEarlier(path);
    try {
        deleteOldFiles(slot, path);
        if (slot.history.empty() || !isSameFile(slot.history.newest().path, path)) {
            slot.history.append(path, mClock.now().seconds);
        }
    } catch (const std::bad_alloc&) {
        slot.file.close(); // its lines would go to a file that no limit counts
        throw;
    }
    slot.newestIsUncounted = true;
    return true;
}

/// Makes the folder for a file. Returns what is in the way of it, null when nothing is.
const char* Rotation::prepareFolder(const LoggerSlot& slot, const std::string& folder) {
    if (isTooLong(slot)) {
        return "its path is too long";
    }
    if (slot.monthdir && isLink(folder)) {
        return "its folder is a link";
    }
    return ensureFolder(mFiles, folder) ? nullptr : "its folder cannot be made";
}

/// The logger writes no file until outfile is set again.
void Rotation::giveUp(LoggerSlot& slot, const std::string& path, const char* obstacle) {
    static constexpr char kFrame[] = "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n";
    mConsole.report("%s", kFrame);
    mConsole.report("can not open log file %s. \r\n", path.c_str());
    mConsole.report("%s", kFrame);
    mConsole.print("log: no log is written, %s: %s \r\n", obstacle, path.c_str());
    slot.outfile = false;
    slot.openFailed = true;
}

/// Whether the names of the logger's files would be longer than the system takes.
bool Rotation::isTooLong(const LoggerSlot& slot) {
    static constexpr char kRest[] = "_2026-11-21-09-59-07.log";
    return mFiles.isTooLong(slot.path + (slot.monthdir ? "2026_11/" : "") + slot.name + kRest +
                            (slot.isZip ? kArchiveEnding : ""));
}

bool Rotation::isLink(std::string folder) {
    while (folder.size() > 1 && platform::endsInSeparator(folder)) {
        folder.pop_back(); // with it the system would look behind the link
    }
    return mFiles.isLink(folder);
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
    if (size == 0 && removeLog(slot, newest)) {
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
    return sizeOf(path) > 0 || mFiles.isFolder(path) || mFiles.isLink(path) ||
           (slot.isZip && mFiles.size(path + kArchiveEnding).has_value());
}

} // namespace orvel::log4z
