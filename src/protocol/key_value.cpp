#include "protocol/key_value.h"

#include "transport/buf_reader.h"

#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace {

constexpr std::uint64_t kFirstCapacity = 255;

/// The pieces as one run.
OBufView joined(const OBufList& pieces) {
    if (pieces.size() == 1) {
        return pieces.front();
    }
    const std::uint64_t size = totalLength(pieces);
    OBufView run;
    if (size != 0 &&
        (run.reset(size) == nullptr || !OBufReader(OBufList(pieces)).readBytes(run.data(), size))) {
        throw std::bad_alloc();
    }
    return run;
}

/// The result of a getter of the entry; 0 or empty if it has none.
template <typename Value>
Value read(const protocol::EntryView* entry, std::optional<Value> (protocol::EntryView::*get)() const,
           bool& ok) {
    const std::optional<Value> value = entry != nullptr ? (entry->*get)() : std::nullopt;
    ok = value.has_value();
    return value.value_or(Value());
}

} // namespace

CtrlProtocol::KeyValueBuf::KeyValueBuf() {
    mBytes.view.reset(kFirstCapacity);
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addInt(std::string_view key, std::uint32_t value) {
    addFront(key, protocol::kTypeInt, sizeof value, value);
    return *this;
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addString(std::string_view key,
                                                                std::string_view value) {
    addFront(key, protocol::kTypeString, protocol::kTextLengthWidth,
             static_cast<std::uint32_t>(value.size()));
    mBytes.putBytes(value.data(), value.size());
    return *this;
}

CtrlProtocol::KeyValueBuf& CtrlProtocol::KeyValueBuf::addKeyValueBuf(std::string_view key,
                                                                     const KeyValueBuf& value) {
    addFront(key, protocol::kTypeKeyValueBuf, protocol::kNestedLengthWidth,
             static_cast<std::uint16_t>(value.mBytes.used));
    mBytes.putBytes(value.mBytes.view.data(), value.mBytes.used);
    mIsTruncated = mIsTruncated || value.mIsTruncated || value.mBytes.isTruncated();
    return *this;
}

std::uint64_t CtrlProtocol::KeyValueBuf::beginNested(std::string_view key) {
    addFront(key, protocol::kTypeKeyValueBuf, protocol::kNestedLengthWidth, 0);
    return mBytes.used;
}

void CtrlProtocol::KeyValueBuf::endNested(std::uint64_t begin) {
    if (!mBytes.isTruncated()) {
        protocol::storeU16(mBytes.view.data() + begin - protocol::kNestedLengthWidth,
                           static_cast<std::uint16_t>(mBytes.used - begin));
    }
}

void CtrlProtocol::KeyValueBuf::finish(OBufList& out) const {
    if (mIsTruncated || mBytes.isTruncated()) {
        throw std::bad_alloc();
    }
    mBytes.shareInto(out);
}

// Writes an entry that fits in one go; field by field only if it does not, since each field grows the storage by its own
// formula.
void CtrlProtocol::KeyValueBuf::addFront(std::string_view key, std::uint8_t type, std::size_t width,
                                         std::uint32_t number) {
    std::uint8_t* next = mBytes.claim(1 + key.size() + 1 + width);
    if (next == nullptr) {
        mBytes.putU8(static_cast<std::uint8_t>(key.size()));
        mBytes.putBytes(key.data(), key.size());
        mBytes.putU8(type);
        if (width == sizeof(std::uint32_t)) {
            mBytes.putU32(number);
        } else {
            mBytes.putU16(static_cast<std::uint16_t>(number));
        }
        return;
    }
    *next++ = static_cast<std::uint8_t>(key.size());
    std::memcpy(next, key.data(), key.size());
    next += key.size();
    *next++ = type;
    if (width == sizeof(std::uint32_t)) {
        protocol::storeU32(next, number);
    } else {
        protocol::storeU16(next, static_cast<std::uint16_t>(number));
    }
}

CtrlProtocol::KeyValueData::KeyValueData(OBufList payload)
    : mPayload(std::move(payload)), mRun(joined(mPayload)),
      mIndex(mRun.data(), mRun.data() != nullptr ? static_cast<std::size_t>(mRun.length) : 0) {}

std::map<std::string, std::uint32_t> CtrlProtocol::KeyValueData::entries() const {
    std::map<std::string, std::uint32_t> entries;
    for (const protocol::EntryView& entry : mIndex) {
        entries[std::string(entry.key())] = static_cast<std::uint32_t>(entry.typeAt() - mRun.data());
    }
    return entries;
}

std::uint8_t CtrlProtocol::KeyValueData::getByte(std::string_view key, bool& ok) const {
    return read(mIndex.find(key), &protocol::EntryView::getByte, ok);
}

std::int32_t CtrlProtocol::KeyValueData::getInt(std::string_view key, bool& ok) const {
    return read(mIndex.find(key), &protocol::EntryView::getInt, ok);
}

std::string_view CtrlProtocol::KeyValueData::getView(std::string_view key, bool& ok) const {
    return read(mIndex.find(key), &protocol::EntryView::getText, ok);
}

std::string CtrlProtocol::KeyValueData::getString(std::string_view key, bool& ok) const {
    return std::string(getView(key, ok));
}

OBufList CtrlProtocol::KeyValueData::getBytes(std::string_view key, bool& ok) const {
    OBufList bytes;
    const std::string_view text = getView(key, ok);
    if (ok) {
        OBufReader reader{OBufList(mPayload)};
        const auto* const first = reinterpret_cast<const std::uint8_t*>(text.data());
        ok = reader.readBytes(nullptr, static_cast<std::uint64_t>(first - mRun.data())) &&
             reader.read(text.size(), bytes);
    }
    return bytes;
}
