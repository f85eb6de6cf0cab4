#pragma once

#include "transport/buf_view.h"

#include <cstdint>

/// A growable builder for outgoing bytes. Belongs to one thread; toView and toList give copies, so writing
/// may go on. When memory runs out, what does not fit and all that comes after it is left out: the bytes written so
/// far are the beginning of what was to be written, without a gap that a reader would take for something else.
class OPackBuf {
public:
    void putU8(std::uint8_t value);
    void putU16(std::uint16_t value); ///< big-endian
    void putU32(std::uint32_t value); ///< big-endian
    void putBytes(const void* bytes, std::uint64_t n);

    /// A view that holds a copy of the written bytes.
    void toView(OBufView& out) const;
    /// A list of that one view.
    void toList(OBufList& out) const;
    /// A list of one view that shares the storage: for a builder that is finished.
    void shareInto(OBufList& out) const;

    /// Memory ran out, and what was written is not the whole.
    bool isCut() const { return mRefused; }

    OBufView view;          ///< its length is the writable capacity
    std::uint64_t used = 0; ///< bytes written

private:
    void putNumber(const std::uint8_t* bigEndian, std::uint64_t width);
    void put(const void* bytes, std::uint64_t n, std::uint64_t grownCapacity);
    bool growTo(std::uint64_t capacity);

    bool mRefused = false; ///< memory ran out
};
