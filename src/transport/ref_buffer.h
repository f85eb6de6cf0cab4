#pragma once

#include <cstddef>
#include <cstdint>

/// A block of bytes that views share. Always made with std::make_shared, so that block and counts are one
/// allocation; threads share it only through the shared pointer.
struct ORefBuffer {
    /// A block without bytes; its owner may set them later: `capacity` bytes from malloc.
    ORefBuffer() = default;
    /// Allocates `size` uninitialised bytes; when that fails, `capacity` is 0 and views of the block stay
    /// empty.
    explicit ORefBuffer(std::uint64_t size);
    ~ORefBuffer();
    ORefBuffer(const ORefBuffer&) = delete;
    ORefBuffer& operator=(const ORefBuffer&) = delete;

    std::uint8_t* data = nullptr;
    std::uint64_t capacity = 0;
};
