#include "protocol/payload_index.h"

#include "protocol/entry_walk.h"

#include <algorithm>

namespace protocol {

PayloadIndex::PayloadIndex(const std::uint8_t* payload, std::size_t size) {
    walkEntries(
        payload, size, [this](EntryView entry) { add(entry); }, [] { return true; });
    if (mSorted.empty()) {
        return;
    }
    // A peer decides how many entries there are: looking up all of them must not take time in the square of their number.
    std::sort(mSorted.begin(), mSorted.end(), [](const EntryView& left, const EntryView& right) {
        const int order = left.key().compare(right.key());
        return order != 0 ? order < 0 : left.typeAt() < right.typeAt();
    });
}

void PayloadIndex::addToMany(EntryView entry) {
    if (mSorted.empty()) {
        mSorted.reserve(2 * kInPlace);
        mSorted.assign(mInPlace.begin(), mInPlace.end());
    }
    mSorted.push_back(entry);
}

const EntryView* PayloadIndex::findInMany(std::string_view key) const {
    const auto isBefore = [](std::string_view wanted, const EntryView& entry) {
        return wanted < entry.key();
    };
    const auto after = std::upper_bound(mSorted.begin(), mSorted.end(), key, isBefore);
    return after != mSorted.begin() && (after - 1)->key() == key ? &*(after - 1) : nullptr;
}

} // namespace protocol
