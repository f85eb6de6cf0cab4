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
        if (!mMany.empty()) {
            return findInMany(key);
        }
        for (std::size_t place = mCount; place != 0; --place) { // from the last: it counts
            if (mFew[place - 1].key() == key) {
                return &mFew[place - 1];
            }
        }
        return nullptr;
    }

    /// All entries in no particular order; of those with the same key, the last one comes last.
    const EntryView* begin() const { return mMany.empty() ? mFew.data() : mMany.data(); }

    const EntryView* end() const {
        return mMany.empty() ? mFew.data() + mCount : mMany.data() + mMany.size();
    }

private:
    /// Up to this many entries are kept in place and searched one by one; a notification has fewer.
    static constexpr std::size_t kFew = 8;

    // By value: a view that had to lie in memory would be read again before its parts are written.
    void add(EntryView entry) {
        if (mMany.empty() && mCount < kFew) {
            mFew[mCount] = entry;
            ++mCount;
        } else {
            addToMany(entry);
        }
    }

    void addToMany(EntryView entry);
    const EntryView* findInMany(std::string_view key) const;

    std::array<EntryView, kFew> mFew;
    std::size_t mCount = 0;       ///< entries in mFew
    std::vector<EntryView> mMany; ///< all entries, ordered by key, once there are more than kFew
};

} // namespace protocol
