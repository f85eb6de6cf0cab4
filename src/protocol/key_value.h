#pragma once

#include "protocol/ctrl_protocol.h"
#include "protocol/payload_index.h"
#include "transport/buf_list.h"
#include "transport/pack_buf.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// Builds a payload: a flat sequence of entries (key length, key, type, value) with nothing around them. A
/// key of more than 255 bytes, and a nested payload of more than 65535, cannot be read back: their lengths
/// are written cut to the width of the field.
class CtrlProtocol::KeyValueBuf {
public:
    KeyValueBuf();
    virtual ~KeyValueBuf() = default;

    KeyValueBuf& addInt(std::string_view key, std::uint32_t value);
    KeyValueBuf& addString(std::string_view key, std::string_view value);
    KeyValueBuf& addKeyValueBuf(std::string_view key, const KeyValueBuf& value);

    /// As addKeyValueBuf, for entries that `add` adds to this buffer, without a buffer of their own.
    template <typename Add>
    KeyValueBuf& addNested(std::string_view key, Add add) {
        const std::uint64_t begin = beginNested(key);
        add(*this);
        endNested(begin);
        return *this;
    }

    /// Gives the written bytes, sharing the storage; the builder is not written to afterwards. Throws std::bad_alloc when
    /// memory ran out on the way: half a payload would be taken for a whole one.
    void finish(OBufList& out) const;

private:
    /// Adds what an entry begins with: its key, its type and a number of `width` bytes, 2 or 4.
    void addFront(std::string_view key, std::uint8_t type, std::size_t width, std::uint32_t number);
    std::uint64_t beginNested(std::string_view key);
    void endNested(std::uint64_t begin);

    OPackBuf mBytes;
    bool mIsTruncated = false; ///< a nested payload lacks something
};

/// Index of a received payload. The payload is shared, and copied only when it comes in several pieces; each getter reads its
/// value in place. Bad bytes are never an error of their own: what is not completely there is not found.
class CtrlProtocol::KeyValueData {
public:
    /// Throws std::bad_alloc.
    explicit KeyValueData(OBufList payload);
    virtual ~KeyValueData() = default;
    KeyValueData(const KeyValueData&) = delete;
    KeyValueData& operator=(const KeyValueData&) = delete;

    /// Offset of each entry's type byte, by key. Of entries with the same key, the last one. Made anew by each call.
    std::map<std::string, std::uint32_t> entries() const;

    /// Each getter sets `ok` to whether the key is there, has the getter's type and its value could be read;
    /// otherwise the result is 0 or empty.
    std::uint8_t getByte(std::string_view key, bool& ok) const;
    std::int32_t getInt(std::string_view key, bool& ok) const;
    OBufList getBytes(std::string_view key, bool& ok) const;
    std::string getString(std::string_view key, bool& ok) const;
    /// The same text where it lies, valid as long as this object.
    std::string_view getView(std::string_view key, bool& ok) const;

private:
    OBufList mPayload;
    OBufView mRun; ///< the whole payload in one block
    protocol::PayloadIndex mIndex;
};
