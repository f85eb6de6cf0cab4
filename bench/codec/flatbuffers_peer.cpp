#include "peers.h"

#include "identity_generated.h"

#include <cstring>

namespace flatbuffers_peer {

namespace {

std::string_view textOf(const flatbuffers::String* text) {
    return text != nullptr ? std::string_view(text->c_str(), text->size()) : std::string_view();
}

} // namespace

std::string encode(const AudioServiceParam& record) {
    flatbuffers::FlatBufferBuilder builder(512);
    const auto text = [&](std::size_t field) {
        const auto& place = record.*kIdentityFields[field].text;
        return builder.CreateString(place, strnlen(place, sizeof place));
    };
    const auto account = text(0);
    const auto mac = text(1);
    const auto device = text(2);
    const auto model = text(3);
    const auto serial = text(4);
    const auto name = text(5);
    const auto identity = CreateIdentity(builder, account, mac, device, model, serial, name);
    builder.Finish(CreateMessage(builder, identity));
    return {reinterpret_cast<const char*>(builder.GetBufferPointer()), builder.GetSize()};
}

bool readViews(std::string_view bytes, IdentityViews& out) {
    flatbuffers::Verifier verifier(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    if (!VerifyMessageBuffer(verifier)) {
        return false;
    }
    const Identity* identity = GetMessage(bytes.data())->koru_info();
    if (identity == nullptr) {
        return false;
    }
    out = {textOf(identity->account_id()), textOf(identity->bluetooth_mac()),
           textOf(identity->device_id()),  textOf(identity->model()),
           textOf(identity->sn()),         textOf(identity->pc_name())};
    return true;
}

} // namespace flatbuffers_peer
