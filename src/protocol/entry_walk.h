#pragma once

#include "protocol/entry_view.h"
#include "protocol/wire_format.h"

#include <cstddef>
#include <cstdint>

namespace protocol {

/// Walks over the entries of a payload and calls `visit` with the EntryView of each whole entry of a known type. Calls
/// `goOn()` now and then, and ends when it returns false.
///
/// An entry of an unknown type counts as one without a value: the byte after its type is the next key's length. A truncated
/// entry ends the walk.
template <typename Visit, typename GoOn>
void walkEntries(const std::uint8_t* payload, std::size_t size, Visit visit, GoOn goOn) {
    constexpr unsigned kAskEvery = 4096; // entries
    const std::uint8_t* next = payload;
    std::size_t left = size;
    for (unsigned entry = 1; left != 0; ++entry) {
        const std::uint8_t keyLength = *next;
        const std::size_t front = std::size_t{keyLength} + 2; // the key, its length and the type
        if (front > left || (entry % kAskEvery == 0 && !goOn())) {
            return;
        }
        const std::uint8_t* const typeAt = next + front - 1;
        const ValueLayout layout = layoutOf(*typeAt);
        next += front;
        left -= front;
        if (!layout.known) {
            continue;
        }
        // Two branches, though one could read either width: what comes next must not wait for a table.
        std::uint32_t length = layout.fixedWidth;
        if (layout.lengthWidth == kTextLengthWidth) {
            if (kTextLengthWidth > left) {
                return;
            }
            length = loadU32(next);
            next += kTextLengthWidth;
            left -= kTextLengthWidth;
        } else if (layout.lengthWidth == kNestedLengthWidth) {
            if (kNestedLengthWidth > left) {
                return;
            }
            length = loadU16(next);
            next += kNestedLengthWidth;
            left -= kNestedLengthWidth;
        }
        if (length > left) {
            return;
        }
        next += length;
        left -= length;
        visit(EntryView(typeAt, keyLength, length));
    }
}

} // namespace protocol
