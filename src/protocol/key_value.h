#pragma once

#include "protocol/ctrl_protocol.h"
#include "transport/buf_view.h"
#include "transport/pack_buf.h"

#include <cstdint>
#include <map>
#include <string>

/// Builds a payload: a flat sequence of entries (key length, key, type, value) with nothing around them. A
/// key of more than 255 bytes, and a nested payload of more than 65535, cannot be read back: their lengths
/// are written cut to the width of the field.
class CtrlProtocol::KeyValueBuf {
public:
    KeyValueBuf();
    virtual ~KeyValueBuf() = default;

    KeyValueBuf& addInt(const std::string& key, std::uint32_t value);
    KeyValueBuf& addString(const std::string& key, const std::string& value);
    KeyValueBuf& addKeyValueBuf(const std::string& key, const KeyValueBuf& value);

    /// Gives the written bytes, sharing the storage; the builder is not written to afterwards. Throws std::bad_alloc when
    /// memory ran out on the way: half a payload would be taken for a whole one.
    void finish(OBufList& out) const;

private:
    void addKey(const std::string& key, std::uint8_t type);

    OPackBuf mBytes;
    bool mIsCut = false; ///< a nested payload lacks something
};

/// Index of a received payload. The payload is shared, not copied; each getter reads its value in place. Bad
/// bytes are never an error of their own: what is not completely there is not found.
class CtrlProtocol::KeyValueData {
public:
    explicit KeyValueData(OBufList payload);
    virtual ~KeyValueData() = default;

    /// Offset of each entry's type byte, by key. Of entries with the same key, the last one.
    const std::map<std::string, std::uint32_t>& entries() const { return mEntries; }

    /// Each getter sets `ok` to whether the key is there, has the getter's type and its value could be read;
    /// otherwise the result is 0 or empty.
    std::uint8_t getByte(const std::string& key, bool& ok) const;
    std::int32_t getInt(const std::string& key, bool& ok) const;
    OBufList getBytes(const std::string& key, bool& ok) const;
    std::string getString(const std::string& key, bool& ok) const;

private:
    void index();

    std::map<std::string, std::uint32_t> mEntries;
    OBufList mPayload;
};
