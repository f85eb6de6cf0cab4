#include "peers.h"

#include <msgpack.hpp>

#include <cstdlib>
#include <cstring>

namespace msgpack_peer {

namespace {

using Packer = msgpack::packer<msgpack::sbuffer>;

void packText(Packer& packer, std::string_view text) {
    packer.pack_str(static_cast<std::uint32_t>(text.size()));
    packer.pack_str_body(text.data(), static_cast<std::uint32_t>(text.size()));
}

void packTexts(Packer& packer, const AudioServiceParam& record) {
    packer.pack_map(kIdentityFields.size());
    for (const IdentityField& field : kIdentityFields) {
        const auto& text = record.*field.text;
        packText(packer, field.key);
        packText(packer, {text, strnlen(text, sizeof text)});
    }
}

void packIdentity(Packer& packer, const AudioServiceParam& record) {
    packer.pack_map(1);
    packText(packer, "KORUInfo");
    packTexts(packer, record);
}

void packInt(Packer& packer, std::string_view key, std::int32_t value) {
    packer.pack_map(1);
    packText(packer, key);
    packer.pack_int32(value);
}

std::string_view textOf(const msgpack::object& object) {
    return {object.via.str.ptr, object.via.str.size};
}

const msgpack::object* find(const msgpack::object& map, std::string_view key) {
    const msgpack::object_kv* const end = map.via.map.ptr + map.via.map.size;
    for (const msgpack::object_kv* entry = map.via.map.ptr; entry != end; ++entry) {
        if (textOf(entry->key) == key) {
            return &entry->val;
        }
    }
    return nullptr;
}

msgpack::sbuffer& keptBuffer() {
    static msgpack::sbuffer buffer;
    buffer.clear();
    return buffer;
}

} // namespace

Owned encodeIdentity(const AudioServiceParam& record) {
    msgpack::sbuffer buffer(256);
    Packer packer(buffer);
    packIdentity(packer, record);
    const std::size_t size = buffer.size();
    return {Bytes(buffer.release(), std::free), size};
}

Owned encodeInt(std::string_view key, std::int32_t value) {
    msgpack::sbuffer buffer(256);
    Packer packer(buffer);
    packInt(packer, key, value);
    const std::size_t size = buffer.size();
    return {Bytes(buffer.release(), std::free), size};
}

std::string_view encodeIdentityAgain(const AudioServiceParam& record) {
    msgpack::sbuffer& buffer = keptBuffer();
    Packer packer(buffer);
    packIdentity(packer, record);
    return {buffer.data(), buffer.size()};
}

std::string_view encodeIntAgain(std::string_view key, std::int32_t value) {
    msgpack::sbuffer& buffer = keptBuffer();
    Packer packer(buffer);
    packInt(packer, key, value);
    return {buffer.data(), buffer.size()};
}

std::string encodeTexts(const AudioServiceParam& record) {
    msgpack::sbuffer buffer;
    Packer packer(buffer);
    packTexts(packer, record);
    return {buffer.data(), buffer.size()};
}

bool readTexts(std::string_view bytes, IdentityTexts& out) {
    msgpack::zone zone;
    const msgpack::object map = msgpack::unpack(zone, bytes.data(), bytes.size());
    for (std::size_t field = 0; field < out.size(); ++field) {
        const msgpack::object* text = find(map, kIdentityFields[field].key);
        if (text == nullptr || text->type != msgpack::type::STR) {
            return false;
        }
        out[field] = textOf(*text);
    }
    return true;
}

bool readIdentity(std::string_view bytes, IdentityTexts& out) {
    msgpack::zone zone;
    const msgpack::object map = msgpack::unpack(zone, bytes.data(), bytes.size());
    const msgpack::object* inner = find(map, "KORUInfo");
    if (inner == nullptr || inner->type != msgpack::type::MAP) {
        return false;
    }
    for (std::size_t field = 0; field < out.size(); ++field) {
        const msgpack::object* text = find(*inner, kIdentityFields[field].key);
        out[field] = text != nullptr ? textOf(*text) : "";
    }
    return true;
}

std::int32_t readInt(std::string_view bytes, std::string_view key) {
    msgpack::zone zone;
    const msgpack::object map = msgpack::unpack(zone, bytes.data(), bytes.size());
    const msgpack::object* number = find(map, key);
    return number != nullptr ? number->as<std::int32_t>() : 0;
}

} // namespace msgpack_peer
