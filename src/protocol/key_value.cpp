#include "protocol/key_value.h"

#include "protocol/big_endian.h"
#include "transport/buf_reader.h"

#include <array>
#include <new>
#include <utility>

namespace {

enum ValueType : std::uint8_t { kTypeByte = 3, kTypeInt = 6, kTypeKeyValueBuf = 14, kTypeString = 20 };

constexpr std::uint64_t kFirstCapacity = 255;

/// How the value behind a type byte is laid out: `fixedWidth` bytes, or a length of `lengthWidth` bytes and
/// as many as it says.
struct ValueLayout {
    bool known;
    std::uint8_t fixedWidth;
    std::uint8_t lengthWidth;
};

ValueLayout layoutOf(std::uint8_t type) {
    switch (type) {
    case 0:
    case 1:
    case 2:
    case kTypeByte:
        return {true, 1, 0};
    case 4:
    case 5:
        return {true, 2, 0};
    case kTypeInt:
    case 7:
    case 10:
        return {true, 4, 0};
    case 8:
    case 9:
    case 11:
        return {true, 8, 0};
    case 12:
    case 13:
    case kTypeKeyValueBuf:
        return {true, 0, 2};
    case kTypeString:
    case 21:
    case 22:
        return {true, 0, 4};
    default:
        return {false, 0, 0};
    }
}

bool readLength(OBufReader& reader, std::uint8_t width, std::uint64_t& length) {
    std::array<std::uint8_t, 4> bytes = {};
    if (!reader.readBytes(bytes.data(), width)) {
        return false;
    }
    length = width == 2 ? readU16(bytes.data()) : readU32(bytes.data());
    return true;
}

bool skipValue(OBufReader& reader, const ValueLayout& layout) {
    std::uint64_t width = layout.fixedWidth;
    if (layout.lengthWidth != 0 && !readLength(reader, layout.lengthWidth, width)) {
        return false;
    }
    return reader.readBytes(nullptr, width);
}

std::string readText(OBufReader& reader, std::uint64_t n, bool& ok) {
    if (n > reader.remaining()) {
        ok = false;
        return {};
    }
    std::string text(static_cast<std::size_t>(n), '\0');
    ok = reader.readBytes(text.data(), n);
    return text;
}

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

// An entry of an unknown type is taken to have no value: the byte behind its type is the next key's length.
// An entry that the payload's end cuts off is not recorded, so a getter never meets one.
void CtrlProtocol::KeyValueData::index() {
    OBufReader reader{OBufList(mPayload)};
    std::uint8_t keyLength = 0;
    while (reader.readBytes(&keyLength, 1)) {
        bool ok = false;
        std::string key = readText(reader, keyLength, ok);
        const auto typeOffset = static_cast<std::uint32_t>(reader.consumed);
        std::uint8_t type = 0;
        if (!ok || !reader.readBytes(&type, 1)) {
            return;
        }
        const ValueLayout layout = layoutOf(type);
        if (!layout.known) {
            continue;
        }
        if (!skipValue(reader, layout)) {
            return;
        }
        mEntries.insert_or_assign(std::move(key), typeOffset);
    }
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
