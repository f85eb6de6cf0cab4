#include "identity.h"

#include <cstring>

namespace {

constexpr std::array<std::string_view, kIdentityFields.size()> kTexts = {
    "anna.mueller@example.org", "3C:6A:A7:1F:90:D2", "7f3c2b1e-58d4-4c0a-9b57-2f1d0e6a8c34",
    "ThinkPad X1 Carbon Gen 9", "PF2K7QXW",          "DESKTOP-7F3K2QX",
};

} // namespace

AudioServiceParam sampleRecord() {
    AudioServiceParam record = {};
    for (std::size_t field = 0; field < kTexts.size(); ++field) {
        std::memcpy(record.*kIdentityFields[field].text, kTexts[field].data(), kTexts[field].size());
    }
    return record;
}

IdentityTexts textsOf(const AudioServiceParam& record) {
    IdentityTexts texts;
    for (std::size_t field = 0; field < texts.size(); ++field) {
        texts[field] = record.*kIdentityFields[field].text;
    }
    return texts;
}

IdentityTexts textsOf(const IdentityViews& views) {
    IdentityTexts texts;
    for (std::size_t field = 0; field < texts.size(); ++field) {
        texts[field] = views[field];
    }
    return texts;
}
