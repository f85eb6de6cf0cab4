#include "log/rolling_file.h"

#include "log/log_folder.h"
#include "log/log_names.h"

#include <new>

namespace orvel::log4z {

namespace {

constexpr int kNameTries = 5;

/// Kept for compatibility: the shift is made in 32 bits, so that without a limit (4294967295 MB) a file is full at
/// 4293918720 bytes. In 64 bits it would grow past 4 GB, which some file systems do not take.
std::uint32_t limitInBytes(std::uint32_t megabytes) {
    return megabytes << 20;
}

} // namespace

bool RollingFile::openFor(std::int64_t lineTime) {
    if (takes(lineTime)) {
        return true;
    }
    mFile.close();
    mOldFiles.countNewest(mFile.isClean());
    mOpenTime = lineTime;
    mOpenDay = platform::localMidnight(mServices.clock, lineTime);
    const std::string folder = mSettings.monthdir
                                   ? mSettings.path + monthFolderName(mServices.clock.toLocal(lineTime))
                                   : mSettings.path;
    const char* const obstacle = prepareFolder(folder);
    const std::string path = chooseName(folder);
    if (obstacle != nullptr || !mFile.open(mServices.files, path)) {
        giveUp(path, obstacle == nullptr ? "no file of its name can be opened" : obstacle);
        return false;
    }
    mWasOpenedFull = mFile.length() > limitInBytes(mSettings.limitSizeMb);
    try {
        mOldFiles.makeRoomFor(path);
    } catch (const std::bad_alloc&) {
        mFile.close(); // its lines would go to a file that no limit counts
        throw;
    }
    return true;
}

void RollingFile::loadHistory(int id) {
    mFile.close();
    mOldFiles.load(id);
}

bool RollingFile::takes(std::int64_t lineTime) const {
    if (!mFile.isOpen() || !isOfItsDay(lineTime)) {
        return false;
    }
    // When every name of this second is in use, opening again would give the same file, once for every line.
    return mFile.length() <= limitInBytes(mSettings.limitSizeMb) || (mWasOpenedFull && lineTime == mOpenTime);
}

bool RollingFile::isOfItsDay(std::int64_t lineTime) const {
    if (lineTime < mOpenDay) {
        return false;
    }
    const std::int64_t end = mOpenDay + platform::kSecondsPerDay;
    // Where clocks are put back a day has a 25th hour. It has a file of its own, but one: with a file for each of its
    // lines the 500 that are kept would soon be this hour's alone.
    return lineTime < end ||
           (mOpenTime >= end && platform::localMidnight(mServices.clock, lineTime) == mOpenDay);
}

/// Makes the folder for a file. Returns why no file can be there, null when one can.
const char* RollingFile::prepareFolder(const std::string& folder) const {
    if (isPathTooLong(mServices.files, mSettings)) {
        return "its path is too long";
    }
    if (mSettings.monthdir && isFolderLink(mServices.files, folder)) {
        return "its folder is a link";
    }
    return ensureFolder(mServices.files, folder) ? nullptr : "its folder cannot be made";
}

std::string RollingFile::chooseName(const std::string& folder) const {
    std::string path;
    for (int attempt = 1; attempt <= kNameTries; ++attempt) {
        path = folder + logFileName(mSettings.name, mServices.clock.toLocal(mOpenTime + attempt - 1));
        if (attempt > 1) {
            mServices.console.print("tryCnt:%d buf:%s", attempt, path.c_str());
        }
        if (!isTaken(path)) {
            break;
        }
    }
    return path;
}

bool RollingFile::isTaken(const std::string& path) const {
    platform::FileSystem& files = mServices.files;
    return files.size(path).value_or(0) > 0 || files.isFolder(path) || files.isLink(path) ||
           (mSettings.isZip && files.size(path + kArchiveEnding).has_value());
}

void RollingFile::giveUp(const std::string& path, const char* obstacle) {
    static constexpr char kFrame[] = "!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n";
    mServices.console.report("%s", kFrame);
    mServices.console.report("can not open log file %s. \r\n", path.c_str());
    mServices.console.report("%s", kFrame);
    mServices.console.print("log: no log is written, %s: %s \r\n", obstacle, path.c_str());
    mHasGivenUp = true;
}

} // namespace orvel::log4z
