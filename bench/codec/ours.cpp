#include "ours.h"

#include "protocol/key_value.h"
#include "protocol/payload_index.h"

#include <cstring>

namespace ours {

namespace {

std::string_view textOf(const char (&field)[SONVIA_TEXT_SIZE]) {
    return {field, strnlen(field, sizeof field)};
}

void addTexts(CtrlProtocol::KeyValueBuf& builder, const AudioServiceParam& record) {
    for (const IdentityField& field : kIdentityFields) {
        builder.addString(field.key, textOf(record.*field.text));
    }
}

} // namespace

OBufList encodeIdentity(const AudioServiceParam& record) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf()
        .addNested(protocol::kKeyKORUInfo,
                   [&record](CtrlProtocol::KeyValueBuf& info) { addTexts(info, record); })
        .finish(payload);
    return payload;
}

OBufList encodeInt(std::string_view key, std::uint32_t value) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addInt(key, value).finish(payload);
    return payload;
}

OBufList encodeText(std::string_view key, std::string_view text) {
    OBufList payload;
    CtrlProtocol::KeyValueBuf().addString(key, text).finish(payload);
    return payload;
}

OBufList encodeTexts(const AudioServiceParam& record) {
    CtrlProtocol::KeyValueBuf builder;
    addTexts(builder, record);
    OBufList payload;
    builder.finish(payload);
    return payload;
}

bool readTexts(const OBufList& payload, IdentityTexts& out) {
    const CtrlProtocol::KeyValueData data{OBufList(payload)};
    bool all = true;
    for (std::size_t field = 0; field < out.size(); ++field) {
        bool ok = false;
        out[field] = data.getString(kIdentityFields[field].key, ok);
        all = all && ok;
    }
    return all;
}

bool readViews(const OBufList& payload, IdentityViews& out) {
    const protocol::PayloadIndex index(payload.front().data(), payload.front().length);
    for (std::size_t field = 0; field < out.size(); ++field) {
        const protocol::EntryView* entry = index.find(kIdentityFields[field].key);
        const auto text = entry != nullptr ? entry->getText() : std::nullopt;
        if (!text.has_value()) {
            return false;
        }
        out[field] = *text;
    }
    return true;
}

std::string readText(const OBufList& payload, std::string_view key) {
    bool ok = false;
    return CtrlProtocol::KeyValueData{OBufList(payload)}.getString(key, ok);
}

std::int32_t readInt(const OBufList& payload, std::string_view key) {
    const protocol::PayloadIndex index(payload.front().data(), payload.front().length);
    const protocol::EntryView* entry = index.find(key);
    return entry != nullptr ? entry->getInt().value_or(0) : 0;
}

bool readIdentity(const OBufList& payload, IdentityTexts& out) {
    constexpr std::size_t kNestedAt = 1 + 8 + 1 + 2; // key length, "KORUInfo", type, length
    OBufView inner;
    return payload.size() == 1 && payload.front().length > kNestedAt &&
           payload.front().slice(inner, kNestedAt, payload.front().length - kNestedAt) &&
           readTexts(OBufList(1, inner), out);
}

} // namespace ours
