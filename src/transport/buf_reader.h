#pragma once

#include "transport/buf_list.h"

#include <cstdint>

/// A cursor that consumes a list of views as one continuous stream. Belongs to one thread.
class OBufReader {
public:
    explicit OBufReader(const OBufView& view);
    explicit OBufReader(OBufList&& list);
    OBufReader(const OBufReader&) = delete;
    OBufReader& operator=(const OBufReader&) = delete;

    /// Moves the next `n` bytes into `out` (cleared first) as slices that share the blocks. False when fewer
    /// than `n` are left; nothing is consumed then.
    bool read(std::uint64_t n, OBufList& out);

    /// Copies the next `n` bytes to `dst`, or skips them when `dst` is null. False as for read(), and when a view has lost
    /// its block: the bytes are then consumed, and the contents of `dst` are undefined.
    bool readBytes(void* dst, std::uint64_t n);

    /// Points `*out` at the next `n` bytes as one run: inside the current view when they lie there, else in
    /// the scratch block, which stays valid until the next call that needs it. 0 bytes give a null pointer.
    /// False when `out` is null, when fewer bytes are left, when the scratch block could not be allocated, or when a view
    /// has lost its block.
    bool readContiguous(const std::uint8_t** out, std::uint64_t n);

    std::uint64_t remaining() const { return total - consumed; }

private:
    /// Consumes `n` bytes, which must be left; calls `take(view, from, count)` for each piece of them.
    template <typename Take>
    void consume(std::uint64_t n, Take take);

public:
    /// The views, with posInView the position in the first one: for a caller that stops early.
    std::uint64_t total = 0;
    std::uint64_t posInView = 0;
    std::uint64_t consumed = 0;
    OBufList::iterator current;
    OBufList views;
    OBufView scratch;
};
