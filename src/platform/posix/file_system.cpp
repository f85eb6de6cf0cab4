#include "platform/file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace platform {

namespace {

class PosixFile final : public OpenFile {
public:
    PosixFile() = default;

    ~PosixFile() override { close(); }

    PosixFile(const PosixFile&) = delete;
    PosixFile& operator=(const PosixFile&) = delete;

    bool open(const char* path, int flags) {
        mDescriptor = ::open(path, flags, 0644);
        if (mDescriptor >= 0 && (flags & O_APPEND) != 0) {
            ::flock(mDescriptor, LOCK_SH | LOCK_NB); // for isWritten
        }
        return mDescriptor >= 0;
    }

    std::size_t write(const void* bytes, std::size_t count) override {
        const char* next = static_cast<const char*>(bytes);
        std::size_t done = 0;
        while (done < count) {
            const ssize_t step = ::write(mDescriptor, next + done, count - done);
            if (step > 0) {
                done += static_cast<std::size_t>(step);
            } else if (step == 0 || errno != EINTR) { // GCOVR_EXCL_LINE no signal interrupts a write
                break;
            }
        }
        return done;
    }

    std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) override {
        return ::lseek(mDescriptor, static_cast<off_t>(offset), SEEK_SET) < 0 ? 0 : write(bytes, count);
    }

    std::size_t read(void* bytes, std::size_t count) override {
        char* next = static_cast<char*>(bytes);
        std::size_t done = 0;
        while (done < count) {
            const ssize_t step = ::read(mDescriptor, next + done, count - done);
            if (step > 0) {
                done += static_cast<std::size_t>(step);
            } else if (step == 0 || errno != EINTR) {
                break;
            }
        }
        return done;
    }

    std::uint64_t size() override {
        struct stat status {};

        return ::fstat(mDescriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
    }

    bool writeThrough() override { return ::fsync(mDescriptor) == 0; }

    bool close() override {
        const bool isClean = mDescriptor < 0 || ::close(mDescriptor) == 0;
        mDescriptor = -1;
        return isClean;
    }

private:
    int mDescriptor = -1; ///< -1 when it is not open
};

int openFlags(OpenMode mode) {
    switch (mode) {
    case OpenMode::Read:
        return O_RDONLY;
    case OpenMode::Write:
        return O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW;
    case OpenMode::Append:
        break;
    }
    return O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW;
}

struct CloseFolder {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

class PosixFiles final : public FileSystem {
public:
    std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) override {
        auto file =
            std::make_unique<PosixFile>(); // allocated first: an allocation failure cannot leak a descriptor
        if (!file->open(path.c_str(), openFlags(mode) | O_CLOEXEC)) {
            return nullptr;
        }
        return file;
    }

    std::optional<std::uint64_t> size(const std::string& path) override {
        struct stat status {};

        if (::stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(status.st_size);
    }

    bool isWritten(const std::string& path) override {
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) {
            return false;
        }
        const bool isHeld = ::flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        ::close(descriptor);
        return isHeld;
    }

    bool remove(const std::string& path) override { return ::unlink(path.c_str()) == 0; }

    bool isFolder(const std::string& path) override {
        struct stat status {};

        return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    }

    bool isLink(const std::string& path) override {
        struct stat status {};

        return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    }

    bool isTooLong(const std::string& path) override { return path.size() >= PATH_MAX; }

    bool createFolders(const std::string& path) override {
        for (std::size_t i = 1; i <= path.size(); ++i) {
            if (i == path.size() || path[i] == '/') {
                ::mkdir(path.substr(0, i).c_str(), 0755); // may exist: only the last one counts
            }
        }
        return isFolder(path);
    }

    std::vector<FolderEntry> list(const std::string& folder) override {
        std::vector<FolderEntry> entries;
        const std::unique_ptr<DIR, CloseFolder> stream(::opendir(folder.c_str()));
        if (stream == nullptr) {
            return entries;
        }
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own
        while (const dirent* found = ::readdir(stream.get())) {
            const std::string name = found->d_name;
            if (name != "." && name != "..") {
                const std::string path = std::string(folder).append("/").append(name);
                const bool isUnknown = found->d_type == DT_UNKNOWN;
                entries.push_back({name, isUnknown ? isFolder(path) : found->d_type == DT_DIR,
                                   isUnknown ? isLink(path) : found->d_type == DT_LNK});
            }
        }
        return entries;
    }
};

} // namespace

FileSystem& systemFiles() {
    static FileSystem& files =
        *new PosixFiles; // never destroyed: the writer thread may outlive static destruction
    return files;
}

} // namespace platform
