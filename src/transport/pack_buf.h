#pragma once

#include "transport/big_endian.h"
#include "transport/buf_list.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

/// A growable builder for outgoing bytes. Belongs to one thread; toView and toList return copies, so writing may go on.
/// After an allocation failure it drops what does not fit and everything after it: the bytes are then a beginning without
/// gaps, which a reader cannot misinterpret.
class OPackBuf {
public:
    void putU8(std::uint8_t value) { putNumber(&value, 1); }

    void putU16(std::uint16_t value) { ///< big-endian
        std::array<std::uint8_t, sizeof value> bytes;
        transport::storeU16(bytes.data(), value);
        putNumber(bytes.data(), bytes.size());
    }

    void putU32(std::uint32_t value) { ///< big-endian
        std::array<std::uint8_t, sizeof value> bytes;
        transport::storeU32(bytes.data(), value);
        putNumber(bytes.data(), bytes.size());
    }

    void putBytes(const void* bytes, std::uint64_t n) {
        if (n != 0 && hasRoom(n)) {
            write(bytes, n);
        } else if (n != 0) {
            growAndWrite(bytes, n, view.length == 0 ? std::max(n, kFirstCapacity) : (used + n) * 2);
        }
    }

    /// The next `n` bytes, which the caller writes at once, if they fit without growing; else null.
    std::uint8_t* claim(std::uint64_t n) {
        if (!hasRoom(n)) {
            return nullptr;
        }
        std::uint8_t* const claimed = view.buffer->data + view.offset + used;
        used += n;
        return claimed;
    }

    /// A view that holds a copy of the written bytes.
    void toView(OBufView& out) const;
    /// A list of that one view.
    void toList(OBufList& out) const;
    /// A list of one view that shares the storage: for a builder that is finished.
    void shareInto(OBufList& out) const;

    /// Whether an allocation failed: what was written is incomplete.
    bool isTruncated() const { return mRefused; }

    OBufView view;          ///< its length is the writable capacity
    std::uint64_t used = 0; ///< bytes written

private:
    static constexpr std::uint64_t kFirstCapacity = 256;

    // Kept for compatibility: numbers grow the storage by another formula than bytes do, twice the position plus twice the
    // width. The sizes of blocks are part of what the buffers promise.
    void putNumber(const std::uint8_t* bigEndian, std::uint64_t width) {
        if (hasRoom(width)) {
            write(bigEndian, width);
        } else {
            growAndWrite(bigEndian, width, view.length == 0 ? kFirstCapacity : used * 2 + width * 2);
        }
    }

    bool hasRoom(std::uint64_t n) const { return n <= view.length - used && !mRefused; }

    void write(const void* bytes, std::uint64_t n) {
        std::memcpy(view.buffer->data + view.offset + used, bytes, static_cast<std::size_t>(n));
        used += n;
    }

    void growAndWrite(const void* bytes, std::uint64_t n, std::uint64_t capacity);

    bool mRefused = false; ///< an allocation failed
};
