#include "protocol/key_value.h"

#include "protocol/big_endian.h"
#include "protocol/entry_walk.h"
#include "transport/buf_reader.h"

#include <array>
#include <new>
#include <utility>

namespace {

constexpr std::uint64_t kFirstCapacity = 255;

/// Moves `reader` to the value of `key`; false when there is no such entry of that type.
bool seek(OBufReader& reader, const std::map<std::string, std::uint32_t>& entries, const std::string& key,
          std::uint8_t type) {
    const auto entry = entries.find(key);
    std::uint8_t found = 0;
    return entry != entries.end() && reader.readBytes(nullptr, entry->second) &&
           reader.readBytes(&found, 1) && found == type;
}

} // namespace

CtrlProtocol::KeyValueBuf::KeyValueBuf() {
    mBytes.view.reset(kFirstCapacity);
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addInt(const std::string& key, std::uint32_t value) {
    addKey(key, kTypeInt);
    mBytes.putU32(value);
    return *this;
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addString(const std::string& key,
                                                                const std::string& value) {
    addKey(key, kTypeString);
    mBytes.putU32(static_cast<std::uint32_t>(value.size()));
    mBytes.putBytes(value.data(), value.size());
    return *this;
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addKeyValueBuf(const std::string& key,
                                                                     const KeyValueBuf& value) {
    addKey(key, kTypeKeyValueBuf);
    mBytes.putU16(static_cast<std::uint16_t>(value.mBytes.used));
    mBytes.putBytes(value.mBytes.view.data(), value.mBytes.used);
    mIsCut = mIsCut || value.mIsCut || value.mBytes.isCut();
    return *this;
}

void CtrlProtocol::KeyValueBuf::finish(OBufList& out) const {
    if (mIsCut || mBytes.isCut()) {
        throw std::bad_alloc();
    }
    mBytes.shareInto(out);
}

void CtrlProtocol::KeyValueBuf::addKey(const std::string& key, std::uint8_t type) {
    mBytes.putU8(static_cast<std::uint8_t>(key.size()));
    mBytes.putBytes(key.data(), key.size());
    mBytes.putU8(type);
}

CtrlProtocol::KeyValueData::KeyValueData(OBufList payload) : mPayload(std::move(payload)) {
    index();
}

// An entry that the payload's end cuts off is not recorded, so a getter never meets one.
void CtrlProtocol::KeyValueData::index() {
    OBufReader reader{OBufList(mPayload)};
    walkEntries(
        reader,
        [this](std::string_view key, std::uint32_t typeOffset) {
            mEntries.insert_or_assign(std::string(key), typeOffset);
        },
        [] { return true; });
}

std::uint8_t CtrlProtocol::KeyValueData::getByte(const std::string& key, bool& ok) const {
    OBufReader reader{OBufList(mPayload)};
    std::uint8_t value = 0;
    ok = seek(reader, mEntries, key, kTypeByte) && reader.readBytes(&value, 1);
    return value;
}

std::int32_t CtrlProtocol::KeyValueData::getInt(const std::string& key, bool& ok) const {
    OBufReader reader{OBufList(mPayload)};
    std::array<std::uint8_t, 4> bytes = {};
    ok = seek(reader, mEntries, key, kTypeInt) && reader.readBytes(bytes.data(), bytes.size());
    return static_cast<std::int32_t>(readU32(bytes.data()));
}

OBufList CtrlProtocol::KeyValueData::getBytes(const std::string& key, bool& ok) const {
    OBufReader reader{OBufList(mPayload)};
    std::uint64_t length = 0;
    OBufList bytes;
    ok = seek(reader, mEntries, key, kTypeString) && readLength(reader, 4, length) &&
         reader.read(length, bytes);
    return bytes;
}

std::string CtrlProtocol::KeyValueData::getString(const std::string& key, bool& ok) const {
    const OBufList bytes = getBytes(key, ok);
    std::string text;
    text.reserve(static_cast<std::size_t>(totalLength(bytes)));
    for (const OBufView& piece : bytes) {
        text.append(reinterpret_cast<const char*>(piece.data()), static_cast<std::size_t>(piece.length));
    }
    return text;
}
