#include "log/history.h"

#include <utility>

namespace orvel::log4z {

// From the end: the files of one folder differ there, and a day's first line compares its path with all of them.
bool isSameFile(std::string_view a, std::string_view b) {
    const auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
    const auto dropSeparators = [](std::string_view& path) {
        path = path.substr(0, path.find_last_not_of("/\\") + 1);
    };
    while (!a.empty() && !b.empty()) {
        if (isSeparator(a.back()) && isSeparator(b.back())) {
            dropSeparators(a);
            dropSeparators(b);
        } else if (a.back() == b.back()) {
            a.remove_suffix(1);
            b.remove_suffix(1);
        } else {
            return false;
        }
    }
    return a.empty() && b.empty();
}

void History::clear() {
    mEntries.clear();
    mWriteLength = 0;
}

void History::append(std::string path, std::int64_t time) {
    mEntries.push_back({std::move(path), time, 0});
}

void History::countNewest(std::uint64_t size) {
    HistoryEntry& entry = mEntries.back();
    mWriteLength += size - entry.countedSize;
    entry.countedSize = size;
}

void History::dropEarlier(const std::string& path) {
    for (auto entry = mEntries.begin(); entry != mEntries.end() && entry + 1 != mEntries.end();) {
        if (isSameFile(entry->path, path)) {
            mWriteLength -= entry->countedSize;
            entry = mEntries.erase(entry);
        } else {
            ++entry;
        }
    }
}

void History::dropNewest() {
    mWriteLength -= mEntries.back().countedSize;
    mEntries.pop_back();
}

void History::dropOldest() {
    mWriteLength -= mEntries.front().countedSize;
    mEntries.pop_front();
}

bool History::mustDelete(const Retention& retention, std::int64_t now, bool& tooLarge) const {
    tooLarge = false;
    if (mEntries.empty()) {
        return false;
    }
    if (mEntries.size() > kMaxEntries) {
        return true;
    }
    switch (retention.type) {
    case kReserveBySize:
        tooLarge = isTooLarge(retention);
        return tooLarge;
    case kReserveByTime:
        return isTooOld(retention, now);
    case kReserveBySizeOrTime:
        tooLarge = isTooLarge(retention);
        return tooLarge || isTooOld(retention, now);
    case kReserveBySizeAndTime:
        tooLarge = isTooLarge(retention);
        return tooLarge && isTooOld(retention, now);
    }
    return false; // GCOVR_EXCL_LINE the compiler wants a result after a switch over every kind of retention
}

bool History::isTooLarge(const Retention& retention) const {
    // Summed in 64 bits: without a limit for a single file the sum must not wrap round to a small one. Without a total
    // limit no file is too much, whatever the single limit adds.
    return retention.totalSizeMb != kNoLimit &&
           std::uint64_t{retention.limitSizeMb} + megabytes() >= retention.totalSizeMb;
}

bool History::isTooOld(const Retention& retention, std::int64_t now) const {
    return retention.reserveSeconds >= 1 && mEntries.front().time < now - retention.reserveSeconds;
}

} // namespace orvel::log4z
