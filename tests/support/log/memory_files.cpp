#include "support/log/memory_files.h"

#include <algorithm>
#include <utility>

namespace support {

namespace {

/// One spelling for each path: single forward slashes, none at the end.
std::string plain(const std::string& path) {
    std::string result;
    for (const char c : path) {
        const char next = c == '\\' ? '/' : c;
        if (next != '/' || result.empty() || result.back() != '/') {
            result += next;
        }
    }
    while (result.size() > 1 && result.back() == '/') {
        result.pop_back();
    }
    return result;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

} // namespace

class MemoryFile final : public platform::OpenFile {
public:
    MemoryFile(MemoryFiles& files, std::shared_ptr<std::string> content, bool append)
        : mFiles(files), mContent(std::move(content)), mAppend(append) {
        if (mAppend) { // under the lock already
            mFiles.mAppended.insert(mContent.get());
        }
    }

    ~MemoryFile() override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        closeUnlocked();
    }

    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::size_t write(const void* bytes, std::size_t count) override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        return put(bytes, mFiles.allowed(MemoryFiles::Call::Write, count));
    }

    std::size_t writeAt(std::uint64_t offset, const void* bytes, std::size_t count) override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        mPlace = static_cast<std::size_t>(offset);
        const std::size_t taken = mFiles.allowed(MemoryFiles::Call::WriteAt, count);
        return put(bytes, std::min(taken, mFiles.allowed(MemoryFiles::Call::Write, count)));
    }

    std::size_t read(void* bytes, std::size_t count) override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        const std::size_t end = std::min(mContent->size(), mFiles.mReadLimit);
        const std::size_t rest = mPlace >= end ? 0 : std::min(count, end - mPlace);
        const std::size_t wanted = mFiles.allowed(MemoryFiles::Call::Read, rest);
        const std::size_t got = wanted == 0 ? 0 : mContent->copy(static_cast<char*>(bytes), wanted, mPlace);
        mPlace += got;
        mFiles.mLargestPiece = std::max(mFiles.mLargestPiece, got);
        return got;
    }

    std::uint64_t size() override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        return mFiles.fails(MemoryFiles::Call::FileSize) ? 0 : mFiles.mClaimedSize.value_or(mContent->size());
    }

    bool writeThrough() override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        return !mFiles.fails(MemoryFiles::Call::WriteThrough);
    }

    bool close() override {
        const std::lock_guard<std::mutex> guard(mFiles.mLock);
        closeUnlocked();
        return !mFiles.fails(MemoryFiles::Call::Close);
    }

private:
    void closeUnlocked() {
        if (mContent != nullptr && mAppend) {
            mFiles.mAppended.erase(mFiles.mAppended.find(mContent.get()));
        }
        mContent.reset();
    }

    std::size_t put(const void* bytes, std::size_t count) {
        if (mAppend) {
            mPlace = mContent->size();
        }
        mContent->resize(std::max(mContent->size(), mPlace + count));
        mContent->replace(mPlace, count, static_cast<const char*>(bytes), count);
        mPlace += count;
        mFiles.mLargestPiece = std::max(mFiles.mLargestPiece, count);
        return count;
    }

    MemoryFiles& mFiles;
    std::shared_ptr<std::string> mContent; ///< stays when the file is removed meanwhile
    bool mAppend;
    std::size_t mPlace = 0;
};

void MemoryFiles::failNth(Call call, int n, bool forEver, Kind kind) {
    const std::lock_guard<std::mutex> guard(mLock);
    Fault& fault = mFaults[call];
    fault.at = fault.calls + n;
    fault.forEver = forEver;
    fault.kind = kind;
}

void MemoryFiles::failNothing() {
    const std::lock_guard<std::mutex> guard(mLock);
    for (auto& [call, fault] : mFaults) {
        fault.at = 0;
    }
}

int MemoryFiles::calls(Call call) const {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto fault = mFaults.find(call);
    return fault == mFaults.end() ? 0 : fault->second.calls;
}

void MemoryFiles::onEach(Call call, std::function<void()> action) {
    const std::lock_guard<std::mutex> guard(mLock);
    mFaults[call].action = std::move(action);
}

bool MemoryFiles::fails(Call call) {
    Fault& fault = mFaults[call];
    if (fault.action) {
        fault.action();
    }
    ++fault.calls;
    return fault.at != 0 && (fault.calls == fault.at || (fault.forEver && fault.calls > fault.at));
}

/// How much of a write, a read or a listing succeeds.
std::size_t MemoryFiles::allowed(Call call, std::size_t count) {
    if (!fails(call)) {
        return count;
    }
    return mFaults[call].kind == Kind::Partly ? count / 2 : 0;
}

std::vector<MemoryFiles::Removed> MemoryFiles::removed() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mRemoved;
}

bool MemoryFiles::exists(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mFiles.count(plain(path)) != 0;
}

std::string MemoryFiles::content(const std::string& path) const {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto file = mFiles.find(plain(path));
    return file == mFiles.end() ? std::string() : *file->second;
}

void MemoryFiles::put(const std::string& path, const std::string& content) {
    putShared(path, std::make_shared<std::string>(content));
}

void MemoryFiles::putShared(const std::string& path, std::shared_ptr<std::string> content) {
    const std::lock_guard<std::mutex> guard(mLock);
    addFolders(parentOf(plain(path)));
    mFiles[plain(path)] = std::move(content);
}

std::vector<std::string> MemoryFiles::paths() const {
    return pathsWith("");
}

std::vector<std::string> MemoryFiles::pathsWith(const std::string& part) const {
    const std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> found;
    for (const auto& [path, content] : mFiles) {
        if (path.find(part) != std::string::npos) {
            found.push_back(path);
        }
    }
    return found;
}

std::uint64_t MemoryFiles::totalSize(const std::string& part) const {
    const std::lock_guard<std::mutex> guard(mLock);
    std::uint64_t total = 0;
    for (const auto& [path, content] : mFiles) {
        total += path.find(part) != std::string::npos ? content->size() : 0;
    }
    return total;
}

void MemoryFiles::removeFolder(const std::string& folder) {
    const std::lock_guard<std::mutex> guard(mLock);
    const std::string base = plain(folder);
    const auto isInside = [&](const std::string& path) {
        return path == base || path.starts_with(base + "/");
    };
    std::erase_if(mFiles, [&](const auto& file) { return isInside(file.first); });
    std::erase_if(mFolders, isInside);
}

std::unique_ptr<platform::OpenFile> MemoryFiles::open(const std::string& path, platform::OpenMode mode) {
    const std::lock_guard<std::mutex> guard(mLock);
    const std::string name = plain(path);
    auto file = mFiles.find(name);
    if (fails(Call::Open) || (mode == platform::OpenMode::Read && file == mFiles.end()) ||
        (mode != platform::OpenMode::Read &&
         (mFolders.count(parentOf(name)) == 0 || mFolders.count(name) != 0))) {
        return nullptr;
    }
    if (file == mFiles.end()) {
        file = mFiles.emplace(name, std::make_shared<std::string>()).first;
    }
    if (mode == platform::OpenMode::Write) {
        file->second->clear();
    }
    return std::make_unique<MemoryFile>(*this, file->second, mode == platform::OpenMode::Append);
}

std::optional<std::uint64_t> MemoryFiles::size(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mSizeReads;
    const auto file = mFiles.find(plain(path));
    return fails(Call::Size) || file == mFiles.end() ? std::nullopt
                                                     : std::optional<std::uint64_t>(file->second->size());
}

bool MemoryFiles::isWritten(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto file = mFiles.find(plain(path));
    return file != mFiles.end() && mAppended.count(file->second.get()) != 0;
}

bool MemoryFiles::remove(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mLock);
    const auto file = mFiles.find(plain(path));
    const bool failed = fails(Call::Remove);
    if (file == mFiles.end() || (failed && mFaults[Call::Remove].kind != Kind::Gone)) {
        return false;
    }
    if (mKeepsRemoved) {
        const auto archive = mFiles.find(file->first + ".zip");
        mRemoved.push_back({file->first, *file->second, archive == mFiles.end() ? "" : *archive->second});
    }
    mFiles.erase(file);
    return !failed;
}

bool MemoryFiles::isFolder(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mLock);
    return !fails(Call::IsFolder) && mFolders.count(plain(path)) != 0;
}

bool MemoryFiles::createFolders(const std::string& path) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (fails(Call::CreateFolders)) {
        return false;
    }
    if (mFiles.count(plain(path)) != 0) {
        return false;
    }
    addFolders(plain(path));
    return true;
}

void MemoryFiles::addFolders(std::string folder) {
    for (;; folder = parentOf(folder)) {
        mFolders.insert(folder);
        if (folder.find('/') == std::string::npos) {
            return;
        }
    }
}

std::vector<platform::FolderEntry> MemoryFiles::list(const std::string& folder) {
    const std::lock_guard<std::mutex> guard(mLock);
    std::vector<platform::FolderEntry> entries;
    const std::string base = plain(folder);
    for (const auto& [path, content] : mFiles) {
        if (parentOf(path) == base) {
            entries.push_back({path.substr(base.size() + 1), false});
        }
    }
    for (const std::string& path : mFolders) {
        if (parentOf(path) == base && path != base) {
            entries.push_back({path.substr(base.size() + 1), true});
        }
    }
    entries.resize(allowed(Call::List, entries.size()));
    return entries;
}

} // namespace support
