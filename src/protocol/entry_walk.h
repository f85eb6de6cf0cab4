#pragma once

#include "protocol/big_endian.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

/// Type codes of values with a meaning here.
enum ValueType : std::uint8_t { kTypeByte = 3, kTypeInt = 6, kTypeKeyValueBuf = 14, kTypeString = 20 };

/// How the value after a type byte is laid out: `fixedWidth` bytes, or a length of `lengthWidth` bytes and
/// as many as it says.
struct ValueLayout {
    bool known;
    std::uint8_t fixedWidth;
    std::uint8_t lengthWidth;
};

constexpr ValueLayout layoutOf(std::uint8_t type) {
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

/// Bytes in one run, read from the front. What is walked below is this or any other with the same two operations.
class SpanReader {
public:
    SpanReader(const std::uint8_t* bytes, std::uint64_t size) : mBytes(bytes), mSize(size) {}

    /// Copies the next `n` bytes to `dst`, or skips them when `dst` is null; false when fewer are left.
    bool readBytes(void* dst, std::uint64_t n) {
        if (n > mSize - consumed) {
            return false;
        }
        if (dst != nullptr && n != 0) {
            std::memcpy(dst, mBytes + consumed, static_cast<std::size_t>(n));
        }
        consumed += n;
        return true;
    }

    const std::uint8_t* next() const { return mBytes + consumed; }

    std::uint64_t consumed = 0;

private:
    const std::uint8_t* mBytes;
    std::uint64_t mSize;
};

template <typename Reader>
bool readLength(Reader& reader, std::uint8_t width, std::uint64_t& length) {
    std::array<std::uint8_t, 4> bytes = {};
    if (!reader.readBytes(bytes.data(), width)) {
        return false;
    }
    length = width == 2 ? readU16(bytes.data()) : readU32(bytes.data());
    return true;
}

template <typename Reader>
bool skipValue(Reader& reader, const ValueLayout& layout) {
    std::uint64_t width = layout.fixedWidth;
    if (layout.lengthWidth != 0 && !readLength(reader, layout.lengthWidth, width)) {
        return false;
    }
    return reader.readBytes(nullptr, width);
}

/// The one walk over the entries of a payload: `visit(key, offset of the type byte)` for each whole entry of a known
/// type, as long as `goOn()`, which is asked now and then, says so. An entry of an unknown type is taken to have no value:
/// the byte after its type is the next key's length. An entry that the payload's end cuts off ends the walk.
template <typename Reader, typename Visit, typename GoOn>
void walkEntries(Reader& reader, Visit visit, GoOn goOn) {
    constexpr unsigned kAskEvery = 4096; // entries
    std::array<char, 255> key;
    std::uint8_t keyLength = 0;
    for (unsigned entry = 1; reader.readBytes(&keyLength, 1); ++entry) {
        std::uint8_t type = 0;
        if ((entry % kAskEvery == 0 && !goOn()) || !reader.readBytes(key.data(), keyLength)) {
            return;
        }
        const auto typeOffset = static_cast<std::uint32_t>(reader.consumed);
        if (!reader.readBytes(&type, 1)) {
            return;
        }
        const ValueLayout layout = layoutOf(type);
        if (!layout.known) {
            continue;
        }
        if (!skipValue(reader, layout)) {
            return;
        }
        visit(std::string_view(key.data(), keyLength), typeOffset);
    }
}

/// One entry's value where it lies, valid as long as the payload. Each getter sets `ok` to whether the entry has the
/// getter's type and its value is whole; otherwise the result is 0 or empty.
class EntryView {
public:
    EntryView(const std::uint8_t* payload, std::uint64_t size, std::uint32_t typeOffset)
        : mReader(payload + typeOffset, size - typeOffset) {}

    std::int32_t getInt(bool& ok) const {
        SpanReader reader = mReader;
        std::array<std::uint8_t, 4> bytes = {};
        ok = isOfType(reader, kTypeInt) && reader.readBytes(bytes.data(), bytes.size());
        return static_cast<std::int32_t>(readU32(bytes.data()));
    }

    std::string_view getText(bool& ok) const {
        SpanReader reader = mReader;
        std::uint64_t length = 0;
        ok = isOfType(reader, kTypeString) && readLength(reader, 4, length);
        const auto* text = reinterpret_cast<const char*>(reader.next());
        ok = ok && reader.readBytes(nullptr, length);
        return ok ? std::string_view(text, static_cast<std::size_t>(length)) : std::string_view();
    }

private:
    static bool isOfType(SpanReader& reader, std::uint8_t type) {
        std::uint8_t found = 0;
        return reader.readBytes(&found, 1) && found == type;
    }

    SpanReader mReader;
};
