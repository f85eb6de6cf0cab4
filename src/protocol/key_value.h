#pragma once

#include "protocol/ctrl_protocol.h"
#include "protocol/payload_index.h"
#include "transport/buf_list.h"
#include "transport/pack_buf.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// Builds a payload: a flat sequence of entries (key length, key, type, value) with nothing around them. A key of more than
/// 255 bytes and a nested payload of more than 65535 cannot be read back: their lengths are truncated to the field.
class CtrlProtocol::KeyValueBuf {
public:
    KeyValueBuf();
    virtual ~KeyValueBuf() = default;

    KeyValueBuf& addInt(std::string_view key, std::uint32_t value);
    KeyValueBuf& addString(std::string_view key, std::string_view value);
    KeyValueBuf& addKeyValueBuf(std::string_view key, const KeyValueBuf& value);

    /// As addKeyValueBuf, but `add` writes the entries into this buffer.
    template <typename Add>
    KeyValueBuf& addNested(std::string_view key, Add add) {
        const std::uint64_t begin = beginNested(key);
        add(*this);
        endNested(begin);
        return *this;
    }

    /// Returns the written bytes, sharing the storage; the builder must not be written to afterwards. Throws std::bad_alloc
    /// if an allocation failed on the way: half a payload would pass for a whole one.
    void finish(OBufList& out) const;

private:
    /// Adds the start of an entry: its key, its type and a number of `width` bytes, 2 or 4.
    void addFront(std::string_view key, std::uint8_t type, std::size_t width, std::uint32_t number);
    std::uint64_t beginNested(std::string_view key);
    void endNested(std::uint64_t begin);

    OPackBuf mBytes;
    bool mIsTruncated = false; ///< a nested payload is incomplete
};

/// Index of a received payload. The payload is shared, and copied only when it has several pieces; each getter reads its
/// value in place. Invalid bytes are not an error: an incomplete entry is not found.
class CtrlProtocol::KeyValueData {
public:
    /// Throws std::bad_alloc.
    explicit KeyValueData(OBufList payload);
    virtual ~KeyValueData() = default;
    KeyValueData(const KeyValueData&) = delete;
    KeyValueData& operator=(const KeyValueData&) = delete;

    /// Offset of each entry's type byte, by key; of entries with the same key, the last one. Built by each call.
    std::map<std::string, std::uint32_t> entries() const;

    /// Each getter sets `ok` to whether the entry exists, has the getter's type and is complete; otherwise the result is 0
    /// or empty.
    std::uint8_t getByte(std::string_view key, bool& ok) const;
    std::int32_t getInt(std::string_view key, bool& ok) const;
    OBufList getBytes(std::string_view key, bool& ok) const;
    std::string getString(std::string_view key, bool& ok) const;
    /// The same text in place, valid as long as this object.
    std::string_view getView(std::string_view key, bool& ok) const;

private:
    OBufList mPayload;
    OBufView mRun; ///< the whole payload in one block
    protocol::PayloadIndex mIndex;
};
