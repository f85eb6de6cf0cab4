#include "platform/file_system.h"

#include <windows.h>

#include <algorithm>

namespace platform {

namespace {

class WindowsFile final : public OpenFile {
public:
    WindowsFile() = default;

    ~WindowsFile() override { close(); }

    WindowsFile(const WindowsFile&) = delete;
    WindowsFile& operator=(const WindowsFile&) = delete;

    bool open(const char* path, DWORD access, DWORD disposition) {
        // No security attributes: the handle is not inherited by the service process.
        mHandle = CreateFileA(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
        return mHandle != INVALID_HANDLE_VALUE;
    }

    std::size_t write(const void* bytes, std::size_t count) override {
        const char* next = static_cast<const char*>(bytes);
        std::size_t done = 0;
        while (done < count) {
            DWORD step = 0;
            if (WriteFile(mHandle, next + done, stepSize(count - done), &step, nullptr) == FALSE ||
                step == 0) {
                break;
            }
            done += step;
        }
        return done;
    }

    std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) override {
        LARGE_INTEGER place;
        place.QuadPart = static_cast<LONGLONG>(offset);
        return SetFilePointerEx(mHandle, place, nullptr, FILE_BEGIN) == FALSE ? 0 : write(bytes, count);
    }

    std::size_t read(void* bytes, std::size_t count) override {
        char* next = static_cast<char*>(bytes);
        std::size_t done = 0;
        while (done < count) {
            DWORD step = 0;
            if (ReadFile(mHandle, next + done, stepSize(count - done), &step, nullptr) == FALSE ||
                step == 0) {
                break;
            }
            done += step;
        }
        return done;
    }

    std::uint64_t size() override {
        LARGE_INTEGER size;
        return GetFileSizeEx(mHandle, &size) == FALSE ? 0 : static_cast<std::uint64_t>(size.QuadPart);
    }

    bool writeThrough() override { return FlushFileBuffers(mHandle) != FALSE; }

    bool close() override {
        const bool isClean = mHandle == INVALID_HANDLE_VALUE || CloseHandle(mHandle) != FALSE;
        mHandle = INVALID_HANDLE_VALUE;
        return isClean;
    }

private:
    static DWORD stepSize(std::size_t count) {
        return static_cast<DWORD>(std::min<std::size_t>(count, 1U << 30));
    }

    HANDLE mHandle = INVALID_HANDLE_VALUE; ///< this value when it is not open
};

bool hasAttributes(const std::string& path, DWORD wanted, DWORD unwanted) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & wanted) == wanted &&
           (attributes & unwanted) == 0;
}

struct CloseSearch {
    void operator()(HANDLE search) const { FindClose(search); }
};

/// Symbolic links and junctions are reparse points, but so are the files of a cloud drive, which are not links. Wine
/// reports no tag for its links.
bool isLinkData(const WIN32_FIND_DATAA& data) {
    return (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0));
}

class WindowsFiles final : public FileSystem {
public:
    std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) override {
        // Without FILE_WRITE_DATA every write goes to the end, whatever another program appends meanwhile. Deleting is
        // shared so that a user can clear the folder while the host runs.
        DWORD access = FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
        DWORD disposition = OPEN_ALWAYS;
        if (mode == OpenMode::Read) {
            access = GENERIC_READ;
            disposition = OPEN_EXISTING;
        } else if (mode == OpenMode::Write) {
            access = GENERIC_WRITE;
            disposition = CREATE_ALWAYS;
        }
        if (mode != OpenMode::Read && isLink(path)) {
            return nullptr;
        }
        // Allocated first, so that an allocation failure cannot leak a handle.
        auto file = std::make_unique<WindowsFile>();
        if (!file->open(path.c_str(), access, disposition)) {
            return nullptr;
        }
        return file;
    }

    std::optional<std::uint64_t> size(const std::string& path) override {
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data) == FALSE ||
            (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            return std::nullopt;
        }
        return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    }

    bool isWritten(const std::string& path) override {
        // Opening without sharing writes fails while another handle may write.
        const HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle == INVALID_HANDLE_VALUE) {
            return GetLastError() == ERROR_SHARING_VIOLATION;
        }
        CloseHandle(handle);
        return false;
    }

    bool remove(const std::string& path) override { return DeleteFileA(path.c_str()) != FALSE; }

    bool isFolder(const std::string& path) override {
        return hasAttributes(path, FILE_ATTRIBUTE_DIRECTORY, 0);
    }

    bool isLink(const std::string& path) override {
        if (!hasAttributes(path, FILE_ATTRIBUTE_REPARSE_POINT, 0)) {
            return false;
        }
        WIN32_FIND_DATAA data;
        const HANDLE search = FindFirstFileA(path.c_str(), &data);
        if (search == INVALID_HANDLE_VALUE) {
            return true; // unknown: do not follow it
        }
        FindClose(search);
        return isLinkData(data);
    }

    bool isTooLong(const std::string& path) override {
        const DWORD size = GetFullPathNameA(path.c_str(), 0, nullptr, nullptr); // with the zero at the end
        return size == 0 || size > MAX_PATH;
    }

    bool createFolders(const std::string& path) override {
        for (std::size_t i = 0; i <= path.size(); ++i) {
            const bool atSeparator = i == path.size() || path[i] == '\\' || path[i] == '/';
            if (atSeparator && i > 0 && !isFolder(path.substr(0, i))) {
                // Creating a parent may fail although it exists ("C:", the root of a share): only the last one counts.
                CreateDirectoryA(path.substr(0, i).c_str(), nullptr);
            }
            // The second byte of a character may be that of "\".
            if (i < path.size() && IsDBCSLeadByte(static_cast<BYTE>(path[i])) != FALSE) {
                ++i;
            }
        }
        return isFolder(path);
    }

    std::vector<FolderEntry> list(const std::string& folder) override {
        std::vector<FolderEntry> entries;
        WIN32_FIND_DATAA found;
        const HANDLE search = FindFirstFileA((folder + "\\*").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE) {
            return entries;
        }
        const std::unique_ptr<void, CloseSearch> closer(search);
        do {
            const std::string name = found.cFileName;
            if (name != "." && name != "..") {
                entries.push_back(
                    {name, (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, isLinkData(found)});
            }
        } while (FindNextFileA(search, &found) != FALSE);
        return entries;
    }
};

} // namespace

FileSystem& systemFiles() {
    static FileSystem& files =
        *new WindowsFiles; // never destroyed: the writer thread may outlive static destruction
    return files;
}

} // namespace platform
