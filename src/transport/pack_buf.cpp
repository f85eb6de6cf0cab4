#include "transport/pack_buf.h"

#include <utility>

void OPackBuf::toView(OBufView& out) const {
    out = OBufView::make(view.data(), used);
}

void OPackBuf::toList(OBufList& out) const {
    OBufView copy;
    toView(copy);
    out = OBufList(1, copy);
}

void OPackBuf::shareInto(OBufList& out) const {
    out.clear();
    OBufView written;
    if (view.slice(written, 0, used)) {
        out.push_back(std::move(written));
    }
}

void OPackBuf::growAndWrite(const void* bytes, std::uint64_t n, std::uint64_t capacity) {
    if (mRefused) {
        return;
    }
    OBufView grown = view;
    grown.setLength(capacity);
    if (grown.data() == nullptr) {
        mRefused = true;
        return;
    }
    view = std::move(grown);
    write(bytes, n);
}
