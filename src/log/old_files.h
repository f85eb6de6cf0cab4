#pragma once

#include "log/file_services.h"
#include "log/history.h"
#include "log/logger_settings.h"

#include <string>

namespace orvel::log4z {

/// A logger's old files: counts, packs and deletes them, and finds them again at the next start. Writer thread only.
class OldFiles {
public:
    OldFiles(const LoggerSettings& settings, const FileServices& services)
        : mSettings(settings), mServices(services) {}

    /// Reads from the logger's folder which old files there are; clears the folder when the version has changed.
    void load(int id);

    /// The file opened last is closed: it is packed if the settings say so, and its size counts from now on. Does
    /// nothing when there is none, or when it is counted already. isClean: the file has taken all its lines; only such
    /// a file is packed.
    void countNewest(bool isClean);

    /// Deletes old files until there is room for the file at `path`, which is open now, and enters that as the newest.
    void makeRoomFor(const std::string& path);

    const History& history() const { return mHistory; }

private:
    void deleteOldest(const std::string& current);
    bool removeLog(const std::string& path) const;
    void archiveNewest();
    bool clearIfVersionChanged();
    void readFolder();
    bool isBehindLink(const std::string& path) const;

    std::uint64_t sizeOf(const std::string& path) const { return mServices.files.size(path).value_or(0); }

    const LoggerSettings& mSettings;
    const FileServices mServices;
    History mHistory;
    bool mNewestIsUncounted =
        false; ///< the newest entry is the file opened last, and its size is not known yet
};

} // namespace orvel::log4z
