#include "log/log_folder.h"

#include "log/log_names.h"
#include "platform/path_text.h"

namespace orvel::log4z {

namespace {

constexpr char kVersionFileName[] = "sonvia_version";
constexpr std::size_t kMaxVersion = 254;

struct Search {
    platform::FileSystem& files;
    const std::string& namePart;
    platform::Clock* clock;
    std::vector<FoundLog> found;
};

bool isLogName(const std::string& name, const std::string& namePart) {
    return name.find(namePart) != std::string::npos && name.find(".log") != std::string::npos;
}

void searchFolder(Search& search, const std::string& folder, int levelsBelow) {
    for (const platform::FolderEntry& entry : search.files.list(folder)) {
        if (entry.isLink) {
            continue; // its target is not the log's
        }
        const std::string path = folder + platform::kPathSeparator + entry.name;
        if (entry.isFolder) {
            if (levelsBelow > 0) {
                searchFolder(search, path, levelsBelow - 1);
            }
            continue;
        }
        if (!isLogName(entry.name, search.namePart)) {
            continue;
        }
        if (search.clock == nullptr) {
            search.found.push_back({path, 0});
        } else if (const auto time = timeInName(entry.name, *search.clock)) {
            search.found.push_back({path, *time});
        }
    }
}

} // namespace

std::vector<FoundLog> listLogs(platform::FileSystem& files, const std::string& folder,
                               const std::string& namePart, platform::Clock* clock) {
    std::string base = folder;
    while (base.size() > 1 && platform::endsInSeparator(base)) {
        base.pop_back(); // the search appends a separator of its own
    }
    Search search{files, namePart, clock, {}};
    searchFolder(search, base, 1);
    return std::move(search.found);
}

std::string readVersionFile(platform::FileSystem& files, const std::string& folder) {
    const auto file = files.open(folder + kVersionFileName, platform::OpenMode::Read);
    if (file == nullptr) {
        return {};
    }
    char text[kMaxVersion];
    return storedVersion(std::string(text, file->read(text, sizeof text)));
}

bool writeVersionFile(platform::FileSystem& files, const std::string& folder, const std::string& version) {
    const std::string path = folder + kVersionFileName;
    if (files.isLink(path)) {
        files.remove(path); // the link, not what it leads to
    }
    const auto file = files.open(path, platform::OpenMode::Write);
    return file != nullptr && file->write(version.data(), version.size()) == version.size() && file->close();
}

std::string storedVersion(const std::string& version) {
    std::string text = version.substr(0, kMaxVersion);
    const std::size_t last = text.find_last_not_of(" \t\r\n\v\f");
    text.erase(last == std::string::npos ? 0 : last + 1);
    return text;
}

bool ensureFolder(platform::FileSystem& files, const std::string& folder) {
    return files.isFolder(folder) || files.createFolders(folder);
}

bool isFolderLink(platform::FileSystem& files, std::string folder) {
    while (folder.size() > 1 && platform::endsInSeparator(folder)) {
        folder.pop_back(); // with a separator at its end the system would look at the link's target
    }
    return files.isLink(folder);
}

bool isPathTooLong(platform::FileSystem& files, const LoggerSettings& settings) {
    static constexpr char kRest[] = "_2026-11-21-09-59-07.log";
    return files.isTooLong(settings.path + (settings.monthdir ? "2026_11/" : "") + settings.name + kRest +
                           (settings.isZip ? kArchiveEnding : ""));
}

} // namespace orvel::log4z
