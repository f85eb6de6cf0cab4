#include "support/log/held_file.h"

#include <filesystem>

namespace support {

HeldFile::HeldFile(std::string path) : mPath(std::move(path)) {
    std::filesystem::remove(mPath);
    std::filesystem::create_directories(mPath + "/inside");
}

HeldFile::~HeldFile() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

} // namespace support
