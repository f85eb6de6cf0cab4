#include "support/log/log_model.h"

#include "platform/path_text.h"

#include <miniz.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace support {

namespace {

constexpr std::int64_t kDay = 86400;

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string lastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string versionText(const std::string& text) {
    std::string kept = text.substr(0, 254);
    while (!kept.empty() && std::string(" \t\r\n\v\f").find(kept.back()) != std::string::npos) {
        kept.pop_back();
    }
    return kept;
}

/// Up to 8 two-digit numbers from the front: "YYYY" is two of them.
std::optional<std::vector<int>> digitPairs(const std::string& text, std::size_t count) {
    std::vector<int> pairs;
    for (std::size_t i = 0; i < 2 * count; i += 2) {
        if (std::isdigit(static_cast<unsigned char>(text[i])) == 0 ||
            std::isdigit(static_cast<unsigned char>(text[i + 1])) == 0) {
            return std::nullopt;
        }
        pairs.push_back((text[i] - '0') * 10 + text[i + 1] - '0');
    }
    return pairs;
}

std::optional<std::int64_t> secondsOf(const std::vector<int>& pairs, bool midnight) {
    using namespace std::chrono;
    const int monthNumber = pairs[2];
    const int dayNumber = pairs[3];
    const int hour = pairs[4];
    const int minute = pairs.size() > 5 ? pairs[5] : 0;
    const int second = pairs.size() > 6 ? pairs[6] : 0;
    if (monthNumber < 1 || monthNumber > 12 || dayNumber < 1 || dayNumber > 31 || hour > 23 || minute > 59 ||
        second > 59) {
        return std::nullopt;
    }
    const sys_days first =
        year(pairs[0] * 100 + pairs[1]) / month(static_cast<unsigned>(monthNumber)) / day(1);
    const std::int64_t start = (first.time_since_epoch().count() + dayNumber - 1) * kDay;
    return midnight ? start : start + hour * 3600 + minute * 60 + second;
}

std::string calendar(const char* format, std::int64_t seconds) {
    const std::chrono::sys_seconds moment{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(moment - day);
    char text[64];
    std::snprintf(text, sizeof text, format, static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

/// Archives keep the time of the computer's place in steps of two seconds; where clocks are put back an hour is there
/// twice.
bool isTimeOf(std::int64_t inArchive, std::int64_t time) {
    const std::int64_t apart = std::abs(time - inArchive);
    return apart <= 1 || std::abs(apart - 3600) <= 1;
}

/// Whether an archive has this text as its only member, under this name.
bool holds(const std::string& archive, const std::string& name, const std::string& text, std::int64_t time) {
    mz_zip_archive zip;
    mz_zip_zero_struct(&zip);
    if (mz_zip_reader_init_mem(&zip, archive.data(), archive.size(), 0) == MZ_FALSE) {
        return false;
    }
    mz_zip_archive_file_stat member;
    std::string found(text.size(), '\0');
    const bool same =
        mz_zip_reader_get_num_files(&zip) == 1 && mz_zip_reader_file_stat(&zip, 0, &member) != MZ_FALSE &&
        member.m_filename == name && member.m_uncomp_size == text.size() && isTimeOf(member.m_time, time) &&
        mz_zip_validate_file(&zip, 0, MZ_ZIP_FLAG_VALIDATE_HEADERS_ONLY) != MZ_FALSE &&
        mz_zip_reader_extract_to_mem(&zip, 0, found.data(), found.size(), 0) != MZ_FALSE && found == text;
    mz_zip_reader_end(&zip);
    return same;
}

} // namespace

/// Its destructor closes the file and keeps what is in it then.
class PackedArchives::OpenArchive final : public platform::OpenFile {
public:
    OpenArchive(PackedArchives& owner, std::string path, std::unique_ptr<platform::OpenFile> file)
        : mOwner(owner), mPath(std::move(path)), mFile(std::move(file)) {}

    ~OpenArchive() override { mOwner.mArchives.push_back({modelPath(mPath), mOwner.mDisk.content(mPath)}); }

    bool writeThrough() override { return mFile->writeThrough(); }

    bool close() override { return mFile->close(); }

    std::size_t write(const void* bytes, std::size_t count) override { return mFile->write(bytes, count); }

    std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) override {
        return mFile->writeAt(offset, bytes, count);
    }

    std::size_t read(void* bytes, std::size_t count) override { return mFile->read(bytes, count); }

    std::uint64_t size() override { return mFile->size(); }

private:
    PackedArchives& mOwner;
    std::string mPath;
    std::unique_ptr<platform::OpenFile> mFile;
};

std::unique_ptr<platform::OpenFile> PackedArchives::open(const std::string& path, platform::OpenMode mode) {
    std::unique_ptr<platform::OpenFile> file = mDisk.open(path, mode);
    if (file == nullptr || mode != platform::OpenMode::Write || !path.ends_with(".zip")) {
        return file;
    }
    return std::make_unique<OpenArchive>(*this, path, std::move(file));
}

std::optional<std::string> PackedArchives::take(const std::string& path) {
    if (mArchives.empty() || mArchives.front().path != path) {
        return std::nullopt;
    }
    std::string bytes = std::move(mArchives.front().bytes);
    mArchives.pop_front();
    return bytes;
}

std::string modelPath(const std::string& text) {
    std::string path;
    for (const char c : text) {
        const bool isSlash = c == '/' || c == '\\';
        if (!isSlash) {
            path += c;
        } else if (!path.empty() && path.back() != '/') {
            path += '/';
        }
    }
    while (!path.empty() && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::optional<std::int64_t> modelTimeInName(const std::string& name) {
    for (std::size_t length = name.size(); length >= 19; --length) {
        const std::string part = name.substr(length - 19, 19);
        if (std::isdigit(static_cast<unsigned char>(part[0])) == 0) {
            continue;
        }
        std::string digits;
        for (std::size_t i = 0; i < part.size(); ++i) {
            const bool dashHere = i == 4 || i == 7 || i == 10 || i == 13 || i == 16;
            if (!dashHere) {
                digits += part[i];
            } else if (part[i] != '-') {
                digits += '?';
            }
        }
        const auto pairs = digits.size() == 14 ? digitPairs(digits, 7) : std::nullopt;
        const auto time = pairs ? secondsOf(*pairs, false) : std::nullopt;
        if (time) {
            return time;
        }
    }
    for (std::size_t length = name.size(); length >= 10; --length) {
        const auto pairs = digitPairs(name.substr(length - 10, 10), 5);
        const auto time = pairs ? secondsOf(*pairs, true) : std::nullopt;
        if (time) {
            return time;
        }
    }
    return std::nullopt;
}

std::uint64_t LogModel::sizeOf(const std::string& path) const {
    return files.count(path) != 0 ? files.at(path).size() : 0;
}

std::uint64_t LogModel::historyBytes() const {
    std::uint64_t sum = 0;
    for (const Entry& entry : history) {
        sum += entry.size;
    }
    return sum;
}

std::vector<std::string> LogModel::listed(const std::string& namePart) const {
    std::vector<std::string> found;
    for (const auto& [path, content] : files) {
        const std::string below = path.starts_with(settings.path) ? path.substr(settings.path.size()) : "";
        const bool isNear = !below.empty() && std::count(below.begin(), below.end(), '/') <= 1;
        if (isNear && has(lastPart(path), namePart) && has(lastPart(path), ".log")) {
            found.push_back(path);
        }
    }
    return found;
}

void LogModel::load(std::int64_t now) {
    close();
    if (!settings.enable) {
        return;
    }
    history.clear();
    mNewestUncounted = false;
    const std::string versionFile = settings.path + "sonvia_version";
    const std::string stored = files.count(versionFile) != 0 ? versionText(files[versionFile]) : "";
    const auto below = files.lower_bound(versionFile + "/");
    const bool canBeWritten = below == files.end() || !below->first.starts_with(versionFile + "/");
    if (stored != versionText(settings.version) && canBeWritten) {
        files[versionFile] = versionText(settings.version);
        for (const std::string& path : listed("sonvia")) {
            files.erase(path);
        }
        return;
    }
    for (const std::string& path : listed(settings.name)) {
        const std::string log = path.substr(0, path.size() - 4);
        const bool isArchive = path.ends_with(".zip");
        const auto time = modelTimeInName(lastPart(path));
        if (!time) {
            continue;
        }
        const std::string content = files[path];
        const bool isWhole = content.size() >= 22 && content.substr(content.size() - 22, 4) == "PK\x05\x06";
        if (isArchive && files.count(log) != 0 && !isWhole) {
            files.erase(path);
        } else {
            history.push_back({path, *time, content.size()});
        }
    }
    std::sort(history.begin(), history.end(), [&](const Entry& a, const Entry& b) {
        const auto shown = [](std::string path) { // as the system lists it
            std::replace(path.begin(), path.end(), '/', platform::kPathSeparator);
            return path;
        };
        return a.time != b.time ? a.time < b.time : shown(a.path) < shown(b.path);
    });
    if (settings.zip && !history.empty() && !history.back().path.ends_with(".zip")) {
        packNewest(now);
        history.back().size = sizeOf(history.back().path);
    }
}

void LogModel::packNewest(std::int64_t now) {
    const std::string log = history.back().path;
    if (files.count(log + ".zip") != 0 || files.count(log) == 0) {
        return;
    }
    // How small it gets is not the model's to know: that is the size of the archive found.
    const std::optional<std::string> archive = mArchives.take(log + ".zip");
    if (!archive || !holds(*archive, lastPart(log), files[log], now)) {
        wrong += log + " ";
    } else if (archive->size() < files[log].size()) {
        files.erase(log);
        files[log + ".zip"] = *archive;
        history.back().path = log + ".zip";
    }
}

void LogModel::line(int level, const std::string& text, std::int64_t time, std::int64_t now) {
    if (!settings.enable || level < settings.level || !settings.outfile) {
        return;
    }
    if (!openFileTakes(time)) {
        open(time, now);
    }
    files[mOpenPath] += text;
}

bool LogModel::openFileTakes(std::int64_t time) const {
    if (mOpenPath.empty()) {
        return false;
    }
    const std::int64_t midnight = mOpenTime - (mOpenTime % kDay + kDay) % kDay;
    const bool isFull = files.at(mOpenPath).size() > settings.limitMb * std::uint32_t{1048576};
    return time >= midnight && time < midnight + kDay && (!isFull || (mOpenedFull && time == mOpenTime));
}

void LogModel::settle(std::int64_t now) {
    if (!mNewestUncounted) {
        return;
    }
    if (settings.zip) {
        packNewest(now);
    }
    history.back().size = sizeOf(history.back().path);
    mNewestUncounted = false;
}

std::string LogModel::freeName(std::int64_t time) const {
    const std::string folder = settings.path + (settings.monthdir ? calendar("%04d_%02u/", time) : "");
    std::string name;
    for (int second = 0; second < 5; ++second) {
        name = folder + settings.name + calendar("_%04d-%02u-%02u-%02d-%02d-%02d.log", time + second);
        const auto below = files.lower_bound(name + "/");
        const bool isFolder = below != files.end() && below->first.starts_with(name + "/");
        if (sizeOf(name) == 0 && !isFolder && !(settings.zip && files.count(name + ".zip") != 0)) {
            break;
        }
    }
    return name;
}

void LogModel::open(std::int64_t time, std::int64_t now) {
    settle(now);
    const std::string path = freeName(time);
    mOpenTime = time;
    mOpenedFull = sizeOf(path) > settings.limitMb * std::uint32_t{1048576};
    files[path]; // made when missing
    for (std::size_t i = 0; i + 1 < history.size();) {
        if (history[i].path == path) {
            history.erase(history.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    while (mustDelete(now) && history.front().path != path) {
        files.erase(history.front().path);
        history.erase(history.begin());
    }
    if (history.empty() || history.back().path != path) {
        history.push_back({path, now, 0});
    }
    mNewestUncounted = true;
    mOpenPath = path;
}

bool LogModel::mustDelete(std::int64_t now) const {
    if (history.empty()) {
        return false;
    }
    const bool isTooLarge = settings.totalMb != orvel::log4z::kNoLimit &&
                            settings.limitMb + historyBytes() / 1048576 >= settings.totalMb;
    const bool isTooOld = settings.reserve >= 1 && history.front().time < now - settings.reserve;
    const bool byRule[] = {isTooLarge, isTooOld, isTooLarge || isTooOld, isTooLarge && isTooOld};
    return history.size() > 500 || byRule[settings.type];
}

} // namespace support
