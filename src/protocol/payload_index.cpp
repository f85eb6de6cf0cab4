#include "protocol/payload_index.h"

#include "protocol/entry_walk.h"

#include <algorithm>

namespace protocol {

PayloadIndex::PayloadIndex(const std::uint8_t* payload, std::size_t size) {
    walkEntries(
        payload, size, [this](EntryView entry) { add(entry); }, [] { return true; });
    if (mMany.empty()) {
        return;
    }
    // A peer decides how many entries there are: looking up all of them must not take time in the square of their number.
    std::sort(mMany.begin(), mMany.end(), [](const EntryView& left, const EntryView& right) {
        const int order = left.key().compare(right.key());
        return order != 0 ? order < 0 : left.typeAt() < right.typeAt();
    });
}

void PayloadIndex::addToMany(EntryView entry) {
    if (mMany.empty()) {
        mMany.reserve(2 * kFew);
        mMany.assign(mFew.begin(), mFew.end());
    }
    mMany.push_back(entry);
}

const EntryView* PayloadIndex::findInMany(std::string_view key) const {
    const auto isBefore = [](std::string_view wanted, const EntryView& entry) {
        return wanted < entry.key();
    };
    const auto after = std::upper_bound(mMany.begin(), mMany.end(), key, isBefore);
    return after != mMany.begin() && (after - 1)->key() == key ? &*(after - 1) : nullptr;
}

} // namespace protocol
