#include "transport/pack_buf.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {
constexpr std::uint64_t kFirstCapacity = 256;
}

void OPackBuf::putU8(std::uint8_t value) {
    putNumber(&value, 1);
}

void OPackBuf::putU16(std::uint16_t value) {
    const std::array<std::uint8_t, 2> bytes = {static_cast<std::uint8_t>(value >> 8),
                                               static_cast<std::uint8_t>(value)};
    putNumber(bytes.data(), bytes.size());
}

void OPackBuf::putU32(std::uint32_t value) {
    const std::array<std::uint8_t, 4> bytes = {
        static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
        static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
    putNumber(bytes.data(), bytes.size());
}

void OPackBuf::putBytes(const void* bytes, std::uint64_t n) {
    if (n == 0) {
        return;
    }
    put(bytes, n, view.length == 0 ? std::max(n, kFirstCapacity) : (used + n) * 2);
}

void OPackBuf::toView(OBufView& out) const {
    out = OBufView::make(view.data(), used);
}

void OPackBuf::toList(OBufList& out) const {
    OBufView copy;
    toView(copy);
    out.assign(1, copy);
}

void OPackBuf::shareInto(OBufList& out) const {
    out.clear();
    OBufView written;
    if (view.slice(written, 0, used)) {
        out.push_back(written);
    }
}

// Numbers grow the storage by another formula than bytes do: twice the position plus twice the width.
void OPackBuf::putNumber(const std::uint8_t* bigEndian, std::uint64_t width) {
    put(bigEndian, width, view.length == 0 ? kFirstCapacity : used * 2 + width * 2);
}

void OPackBuf::put(const void* bytes, std::uint64_t n, std::uint64_t grownCapacity) {
    mRefused = mRefused || (n > view.length - used && !growTo(grownCapacity));
    if (mRefused) {
        return;
    }
    std::memcpy(view.data() + used, bytes, static_cast<std::size_t>(n));
    used += n;
}

bool OPackBuf::growTo(std::uint64_t capacity) {
    OBufView grown = view;
    grown.setLength(capacity);
    if (grown.data() == nullptr) {
        return false;
    }
    view = grown;
    return true;
}
