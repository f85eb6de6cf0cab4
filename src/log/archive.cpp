#include "log/archive.h"

#include "platform/path_text.h"

#include <miniz.h>

#include <algorithm>
#include <ctime>
#include <string_view>

namespace orvel::log4z {

namespace {

/// For log lines as small as the usual 6, to within a percent, and twice as fast: the writer thread does nothing else
/// meanwhile.
constexpr mz_uint kCompressionLevel = 4;

struct LogSource {
    platform::OpenFile& file;
    std::uint64_t left; ///< bytes to read of the length that the file had when it was opened
};

std::size_t readLog(void* opaque, mz_uint64, void* bytes, std::size_t count) {
    auto& source = *static_cast<LogSource*>(opaque);
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, source.left));
    const std::size_t got = wanted == 0 ? 0 : source.file.read(bytes, wanted);
    source.left -= got;
    return got;
}

std::size_t writeZip(void* opaque, mz_uint64 offset, const void* bytes, std::size_t count) {
    return static_cast<platform::OpenFile*>(opaque)->writeAt(offset, bytes, count);
}

/// A log continues after its length when another program appends to it, or when the length could not be read.
bool hasMore(platform::OpenFile& log) {
    char byte = 0;
    return log.read(&byte, 1) != 0;
}

bool packInto(mz_zip_archive& zip, const std::string& memberName, platform::OpenFile& log,
              std::int64_t time) {
    const std::uint64_t length = log.size();
    LogSource source{log, length};
    const MZ_TIME_T memberTime = static_cast<MZ_TIME_T>(time);
    return mz_zip_writer_add_read_buf_callback(&zip, memberName.c_str(), readLog, &source, length,
                                               &memberTime, nullptr, 0, kCompressionLevel, nullptr, 0,
                                               nullptr,
                                               0) != MZ_FALSE &&
           source.left == 0 && // a read error looks like the end of the file
           !hasMore(log) && mz_zip_writer_finalize_archive(&zip) != MZ_FALSE;
}

} // namespace

bool writeArchive(platform::FileSystem& files, const std::string& logPath, const std::string& archivePath,
                  std::int64_t time) {
    const std::string memberName(platform::lastPathComponent(logPath));
    const auto log = files.open(logPath, platform::OpenMode::Read);
    const auto archive = log == nullptr ? nullptr : files.open(archivePath, platform::OpenMode::Write);
    if (archive == nullptr) {
        return false;
    }
    mz_zip_archive zip;
    mz_zip_zero_struct(&zip);
    zip.m_pWrite = writeZip;
    zip.m_pIO_opaque = archive.get();
    if (mz_zip_writer_init(&zip, 0) == MZ_FALSE) {
        return false; // GCOVR_EXCL_LINE miniz refuses an empty archive only without memory
    }
    const bool whole = packInto(zip, memberName, *log, time);
    mz_zip_writer_end(&zip);
    return whole && archive->writeThrough() && archive->close(); // the log may be deleted for it
}

bool isTornArchive(platform::FileSystem& files, const std::string& archivePath) {
    // The end record of an archive without a comment.
    constexpr std::size_t kEndSize = 22;
    constexpr std::string_view kEndMark("PK\x05\x06", 4);
    const auto archive = files.open(archivePath, platform::OpenMode::Read);
    if (archive == nullptr) {
        return false;
    }
    std::uint64_t length = 0;
    std::string tail;
    char piece[4096];
    for (std::size_t count = 0; (count = archive->read(piece, sizeof piece)) > 0; length += count) {
        tail.append(piece, count);
        tail.erase(0, tail.size() - std::min(tail.size(), kEndSize));
    }
    const bool wasReadToItsEnd =
        files.size(archivePath) == length; // a read error looks like the end of the file
    const bool isWhole = tail.size() == kEndSize && tail.compare(0, kEndMark.size(), kEndMark) == 0;
    return wasReadToItsEnd && !isWhole;
}

} // namespace orvel::log4z
