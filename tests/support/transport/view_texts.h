// Views and lists of them as texts.
#pragma once

#include "transport/buf_list.h"
#include "transport/buf_view.h"

#include <cstddef>
#include <string>
#include <vector>

namespace support {

using Texts = std::vector<std::string>;

inline OBufView viewOf(const std::string& text) {
    return OBufView::make(text.data(), text.size());
}

/// One view a text.
inline OBufList listOfTexts(const Texts& texts) {
    OBufList list;
    for (const std::string& text : texts) {
        list.push_back(viewOf(text));
    }
    return list;
}

inline std::string textOf(const OBufView& view) {
    return {reinterpret_cast<const char*>(view.data()), static_cast<std::size_t>(view.length)};
}

inline Texts textsOf(const OBufList& list) {
    Texts texts;
    for (const OBufView& view : list) {
        texts.push_back(textOf(view));
    }
    return texts;
}

} // namespace support
