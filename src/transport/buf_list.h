#pragma once

#include "transport/buf_view.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

/// Views in stream order: the form in which messages made of several pieces travel through the library. A message of one
/// piece, or of a header and a payload, needs no memory of its own.
///
/// Belongs to one thread. Operations that add views throw std::bad_alloc and leave the list as it was; moving, swapping
/// and removing never throw. Adding or removing a view invalidates iterators.
class OBufList {
public:
    using value_type = OBufView;
    using reference = OBufView&;
    using const_reference = const OBufView&;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using iterator = OBufView*;
    using const_iterator = const OBufView*;

    OBufList() = default;
    /// `count` copies of one view. Throws std::length_error, "list<T> too long", for more than memory could hold.
    explicit OBufList(std::size_t count, const OBufView& view = {});
    OBufList(std::initializer_list<OBufView> views);
    OBufList(const OBufList&) = default;

    OBufList(OBufList&& other) noexcept
        : mInPlace(std::move(other.mInPlace)), mCount(std::exchange(other.mCount, 0)),
          mSpilled(std::move(other.mSpilled)) {}

    OBufList& operator=(const OBufList&) = default;
    OBufList& operator=(OBufList&& other) noexcept;
    ~OBufList() = default;

    iterator begin() { return mSpilled.empty() ? mInPlace.data() : mSpilled.data(); }

    const_iterator begin() const { return mSpilled.empty() ? mInPlace.data() : mSpilled.data(); }

    iterator end() { return begin() + size(); }

    const_iterator end() const { return begin() + size(); }

    OBufView& front() { return *begin(); }

    const OBufView& front() const { return *begin(); }

    OBufView& back() { return *(end() - 1); }

    const OBufView& back() const { return *(end() - 1); }

    std::size_t size() const { return mSpilled.empty() ? mCount : mSpilled.size(); }

    bool empty() const { return size() == 0; }

    void push_back(OBufView view) {
        if (mSpilled.empty() && mCount < kInPlace) {
            mInPlace[mCount] = std::move(view);
            ++mCount;
        } else {
            pushSpilled(std::move(view));
        }
    }

    /// Moves all views of `other` to the end.
    void append(OBufList&& other);
    void erase(iterator place);

    void clear() {
        while (mCount != 0) {
            --mCount;
            mInPlace[mCount] = {};
        }
        mSpilled.clear();
    }

    void swap(OBufList& other) noexcept;

private:
    static constexpr std::size_t kInPlace = 2;

    /// Makes room in mSpilled for `count` views, when mInPlace cannot hold as many.
    void reserve(std::size_t count);
    /// Adds a view that mInPlace has no room for.
    void pushSpilled(OBufView view);

    std::array<OBufView, kInPlace> mInPlace;
    std::size_t mCount = 0;         ///< views in mInPlace; 0 when they have moved to mSpilled
    std::vector<OBufView> mSpilled; ///< all views, once there were more than kInPlace
};

/// Sum of the views' lengths.
std::uint64_t totalLength(const OBufList& list);
