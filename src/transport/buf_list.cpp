#include "transport/buf_list.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <stdexcept>

OBufList::OBufList(std::size_t count, const OBufView& view) {
    if (count > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(OBufView)) {
        throw std::length_error("list<T> too long");
    }
    reserve(count);
    while (size() < count) {
        push_back(view);
    }
}

OBufList::OBufList(std::initializer_list<OBufView> views) {
    reserve(views.size());
    for (const OBufView& view : views) {
        push_back(view);
    }
}

OBufList& OBufList::operator=(OBufList&& other) noexcept {
    OBufList taken(std::move(other));
    swap(taken);
    return *this;
}

void OBufList::append(OBufList&& other) {
    reserve(size() + other.size());
    for (OBufView& view : other) {
        push_back(std::move(view));
    }
    other.clear();
}

void OBufList::erase(iterator place) {
    if (!mSpilled.empty()) {
        mSpilled.erase(mSpilled.begin() + (place - mSpilled.data()));
        return;
    }
    std::move(place + 1, end(), place);
    --mCount;
    mInPlace[mCount] = {};
}

void OBufList::swap(OBufList& other) noexcept {
    mInPlace.swap(other.mInPlace);
    std::swap(mCount, other.mCount);
    mSpilled.swap(other.mSpilled);
}

void OBufList::reserve(std::size_t count) {
    if (count > kInPlace && count > mSpilled.capacity()) {
        mSpilled.reserve(std::max(
            count, size() * 2)); // doubled: adding views one by one must not move all of them each time
    }
}

void OBufList::pushSpilled(OBufView view) {
    if (mSpilled.empty()) {
        reserve(kInPlace * 2);
        std::move(mInPlace.begin(), mInPlace.end(), std::back_inserter(mSpilled));
        mCount = 0;
    }
    mSpilled.push_back(std::move(view));
}

std::uint64_t totalLength(const OBufList& list) {
    std::uint64_t sum = 0;
    for (const OBufView& view : list) {
        sum += view.length;
    }
    return sum;
}
