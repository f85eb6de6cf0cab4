#include "transport/ref_buffer.h"

#include <cstdlib>

// malloc instead of new[]: a peer decides how much arrives, so running out of memory must show as an empty
// block, not as an exception inside a libuv callback.
ORefBuffer::ORefBuffer(std::uint64_t size)
    : data(static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(size)))),
      capacity(data != nullptr ? size : 0) {}

ORefBuffer::~ORefBuffer() {
    std::free(data);
}
