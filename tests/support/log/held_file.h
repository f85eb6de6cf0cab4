#pragma once

#include <string>

namespace support {

/// Another program that keeps a file to itself: while this lives, nobody else opens or removes it. On Windows the file
/// is open without sharing. Elsewhere nothing locks a file like that: a folder that is not empty takes its place.
class HeldFile {
public:
    explicit HeldFile(std::string path);
    ~HeldFile();
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

private:
    std::string mPath;
#ifdef _WIN32
    void* mHandle = nullptr;
#endif
};

} // namespace support
