#include "gallery.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <uv.h>

namespace standin {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSuffix = ".scenario";

fs::path folder() {
    return fs::path(programFolder()) / "gallery";
}

std::optional<std::string> read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::error_code ignored;
    if (!file || fs::is_directory(path, ignored)) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace

std::string programFolder() {
    char path[4096] = {};
    std::size_t size = sizeof path;
    if (uv_exepath(path, &size) != 0) {
        return {};
    }
    const std::string self(path, size);
    return self.substr(0, self.find_last_of("/\\") + 1);
}

std::vector<GalleryEntry> gallery() {
    std::vector<GalleryEntry> found;
    std::error_code absent;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder(), absent)) {
        if (entry.path().extension() == kSuffix) {
            std::string purpose;
            std::ifstream file(entry.path());
            std::getline(file, purpose);
            purpose.erase(std::remove(purpose.begin(), purpose.end(), '\r'), purpose.end());
            found.push_back(
                {entry.path().stem().string(), purpose.substr(std::min<std::size_t>(purpose.size(), 2))});
        }
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return found;
}

std::optional<std::string> readScenario(const std::string& pathOrName) {
    const std::optional<std::string> text = read(pathOrName);
    return text ? text : read(folder() / (pathOrName + kSuffix));
}

} // namespace standin
