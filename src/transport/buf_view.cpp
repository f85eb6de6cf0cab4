#include "transport/buf_view.h"

#include <algorithm>
#include <cstring>

OBufView OBufView::make(const void* bytes, std::uint64_t n) {
    OBufView view;
    std::uint8_t* target = view.reset(n);
    if (target != nullptr && view.length != 0) {
        std::memcpy(target, bytes, static_cast<std::size_t>(n));
    }
    return view;
}

std::uint8_t* OBufView::reset(std::uint64_t n) {
    buffer = std::make_shared<ORefBuffer>(n);
    offset = 0;
    length = buffer->capacity;
    return buffer->data;
}

bool OBufView::slice(OBufView& out, std::uint64_t from, std::uint64_t n) const {
    // Written as subtractions: lengths come from the peer, and a sum of two of them may wrap around.
    if (buffer == nullptr || n == 0 || n > length || from > length - n) {
        return false;
    }
    if (offset > buffer->capacity || from > buffer->capacity - offset ||
        n > buffer->capacity - offset - from) {
        return false;
    }
    const std::uint64_t start = offset + from; // read before `out` is written: it may be this view
    out.buffer = buffer;
    out.offset = start;
    out.length = n;
    return true;
}

std::uint64_t OBufView::setLength(std::uint64_t n) {
    const std::uint64_t previous = length;
    if (n == 0) {
        length = 0;
        return previous;
    }
    if (buffer != nullptr && offset <= buffer->capacity && n <= buffer->capacity - offset) {
        length = n;
        return previous;
    }
    const std::shared_ptr<ORefBuffer> old = buffer;
    buffer = std::make_shared<ORefBuffer>(n);
    if (old != nullptr && buffer->data != nullptr && old->data != nullptr) {
        // A view with an offset may ask for fewer bytes than its old block held; the copy never leaves the
        // new one.
        std::memcpy(buffer->data, old->data,
                    static_cast<std::size_t>(std::min(old->capacity, buffer->capacity)));
    }
    length = buffer->capacity;
    return previous;
}
