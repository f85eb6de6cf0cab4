#include "transport/buf_reader.h"

#include <cstring>
#include <utility>

OBufReader::OBufReader(const OBufView& view) : total(view.length), views(1, view) {
    current = views.begin();
}

OBufReader::OBufReader(OBufList&& list) : total(totalLength(list)), views(std::move(list)) {
    current = views.begin();
}

template <typename Take>
void OBufReader::consume(std::uint64_t n, Take take) {
    std::uint64_t needed = n;
    while (needed != 0 && current != views.end()) {
        const std::uint64_t rest = current->length - posInView;
        const std::uint64_t count = rest <= needed ? rest : needed;
        take(*current, posInView, count);
        consumed += count;
        needed -= count;
        posInView += count;
        if (count == rest) { // the view is used up, or was empty
            posInView = 0;
            ++current;
        }
    }
}

bool OBufReader::read(std::uint64_t n, OBufList& out) {
    out.clear();
    if (n > remaining()) {
        return false;
    }
    consume(n, [&out](const OBufView& view, std::uint64_t from, std::uint64_t count) {
        OBufView piece;
        if (view.slice(piece, from, count)) {
            out.push_back(std::move(piece));
        }
    });
    return true;
}

bool OBufReader::readBytes(void* dst, std::uint64_t n) {
    if (n > remaining()) {
        return false;
    }
    auto* target = static_cast<std::uint8_t*>(dst);
    bool whole = true;
    consume(n, [&](const OBufView& view, std::uint64_t from, std::uint64_t count) {
        if (target == nullptr || count == 0) {
            return;
        }
        const std::uint8_t* source = view.data();
        whole = whole && source != nullptr;
        if (source != nullptr) {
            std::memcpy(target, source + from, static_cast<std::size_t>(count));
        }
        target += count;
    });
    return whole;
}

bool OBufReader::readContiguous(const std::uint8_t** out, std::uint64_t n) {
    if (out == nullptr || n > remaining()) {
        return false;
    }
    if (n == 0) {
        *out = nullptr;
        return true;
    }
    if (current != views.end() && current->data() != nullptr && n <= current->length - posInView) {
        *out = current->data() + posInView;
        posInView += n;
        consumed += n;
        return true;
    }
    std::uint8_t* contiguous = scratch.reset(n);
    if (contiguous == nullptr || !readBytes(contiguous, n)) {
        return false;
    }
    *out = contiguous;
    return true;
}
