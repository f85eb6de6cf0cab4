#pragma once

#include "transport/ref_buffer.h"

#include <cstdint>
#include <memory>

/// A byte range inside one shared block. Copies share the block. offset + length never exceeds the block's
/// capacity (for views that setLength grew: only when their offset was 0).
class OBufView {
public:
    /// A new block that holds a copy of `n` bytes; empty when the block could not be allocated.
    static OBufView make(const void* bytes, std::uint64_t n);

    /// Gives this view a new uninitialised block of exactly `n` bytes and returns its data; null (and length
    /// 0) when the block could not be allocated.
    std::uint8_t* reset(std::uint64_t n);

    /// Makes `out` share `n` bytes from `from` on. False, leaving `out` as it was, when this view has no
    /// block, when `n` is 0, or when the range does not lie inside the view and its block.
    bool slice(OBufView& out, std::uint64_t from, std::uint64_t n) const;

    /// Sets the length and returns the previous one. When the block is too small (or missing) the view moves
    /// to a new block of exactly `n` bytes that begins with the whole old block, counted from its first byte
    /// and not from `offset`, and keeps its offset: exact for views whose offset is 0, the only ones that are
    /// ever grown.
    std::uint64_t setLength(std::uint64_t n);

    /// First byte of the range; null for a view without a block.
    std::uint8_t* data() const {
        return buffer != nullptr && buffer->data != nullptr ? buffer->data + offset : nullptr;
    }

    std::shared_ptr<ORefBuffer> buffer;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};
