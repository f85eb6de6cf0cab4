#pragma once

#include "protocol/entry_view.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace protocol {

/// Finds the entries of a payload in one piece by their keys. Borrows the payload. Of entries with the same key, the last
/// one counts.
class PayloadIndex {
public:
    PayloadIndex(const std::uint8_t* payload, std::size_t size);

    /// Null when there is no such key.
    const EntryView* find(std::string_view key) const {
        if (!mSorted.empty()) {
            return findInMany(key);
        }
        for (std::size_t place = mCount; place != 0; --place) { // from the last: it counts
            if (mInPlace[place - 1].key() == key) {
                return &mInPlace[place - 1];
            }
        }
        return nullptr;
    }

    /// All entries in no particular order; of those with the same key, the last one comes last.
    const EntryView* begin() const { return mSorted.empty() ? mInPlace.data() : mSorted.data(); }

    const EntryView* end() const {
        return mSorted.empty() ? mInPlace.data() + mCount : mSorted.data() + mSorted.size();
    }

private:
    /// Up to this many entries are kept in place and searched one by one; a notification has fewer.
    static constexpr std::size_t kInPlace = 8;

    // By value: a view that had to lie in memory would be read again before its parts are written.
    void add(EntryView entry) {
        if (mSorted.empty() && mCount < kInPlace) {
            mInPlace[mCount] = entry;
            ++mCount;
        } else {
            addToMany(entry);
        }
    }

    void addToMany(EntryView entry);
    const EntryView* findInMany(std::string_view key) const;

    std::array<EntryView, kInPlace> mInPlace;
    std::size_t mCount = 0;         ///< entries in mInPlace
    std::vector<EntryView> mSorted; ///< all entries, ordered by key, once there are more than kInPlace
};

} // namespace protocol
