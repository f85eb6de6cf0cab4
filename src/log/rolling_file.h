#pragma once

#include "log/file_services.h"
#include "log/log_file.h"
#include "log/logger_settings.h"
#include "log/old_files.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvel::log4z {

/// The file that a logger's lines go to: closes it when it is full or its day is over, and opens the next. It alone
/// changes what is known of a logger's files. Writer thread only, but for `linesLost`.
///
///     name_2026-03-01-09-00-00.log   being written; over its limit or past midnight it is closed,
///     name_2026-03-01-08-12-44.log   joins the old files (with zip: as .log.zip, when that is smaller),
///     name_2026-02-28-17-30-05.log   and while those are over their limits
///     name_2026-02-28-09-00-00.log   the oldest is deleted
class RollingFile {
public:
    /// Both arguments outlive the file. Nothing is opened yet.
    RollingFile(const LoggerSettings& settings, const FileServices& services)
        : mSettings(settings), mServices(services), mOldFiles(settings, services) {}

    /// Makes sure that the file for a line of that time is open. False when it cannot be opened: the logger then gives
    /// up and writes no file until `tryAgain`. Throws bad_alloc; the next call tries again.
    bool openFor(std::int64_t lineTime);

    /// Buffers a line for the open file; when that does not take it, the line counts as lost.
    void write(const char* line, std::size_t length) { mFile.write(line, length); }

    /// As `write`, for a line of the log's own that is not counted when it is lost.
    void writeNote(const char* line, std::size_t length) { mFile.writeNote(line, length); }

    /// Hands what is buffered to the system.
    void flush() { mFile.flush(); }

    void close() { mFile.close(); }

    /// Closes the file and reads from the logger's folder which old files there are; clears the folder when the
    /// version has changed. id: the logger's, for the notice.
    void loadHistory(int id);

    /// Whether no file is written because one could not be opened.
    bool hasGivenUp() const { return mHasGivenUp; }

    /// The next line may open a file again.
    void tryAgain() { mHasGivenUp = false; }

    bool isOpen() const { return mFile.isOpen(); }

    /// The file's length in bytes, with what is still buffered.
    std::uint64_t length() const { return mFile.length(); }

    /// Whether a file is open and has taken all lines since some were last lost.
    bool takesLines() const { return mFile.takesLines(); }

    /// A line for which there is no file.
    void loseLine() { mFile.loseLines(1); }

    /// Lines that are not, or not whole, in any file. Thread: any.
    std::uint64_t linesLost() const { return mFile.linesLost(); }

    const History& history() const { return mOldFiles.history(); }

private:
    bool takes(std::int64_t lineTime) const;
    bool isOfItsDay(std::int64_t lineTime) const;
    const char* prepareFolder(const std::string& folder) const;
    std::string chooseName(const std::string& folder) const;
    bool isTaken(const std::string& path) const;
    void giveUp(const std::string& path, const char* obstacle);

    const LoggerSettings& mSettings;
    const FileServices mServices;
    LogFile mFile;
    OldFiles mOldFiles;
    std::int64_t mOpenTime = 0;  ///< the time of the line that opened the file
    std::int64_t mOpenDay = 0;   ///< the local midnight before it
    bool mWasOpenedFull = false; ///< it was over its limit when it was opened: no other name was free
    bool mHasGivenUp = false;
};

} // namespace orvel::log4z
