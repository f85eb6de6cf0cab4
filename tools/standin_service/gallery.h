// The ready scenarios next to the program, and how one of them or a file is found.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace standin {

struct GalleryEntry {
    std::string name;
    std::string purpose; // the first line of its comment
};

// Folder of the running program, with a separator at its end.
std::string programFolder();

std::vector<GalleryEntry> gallery();

// The text of the scenario that is a file of this path or else has this name in the gallery; nothing when neither can
// be read.
std::optional<std::string> readScenario(const std::string& pathOrName);

} // namespace standin
