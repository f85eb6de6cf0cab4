#pragma once

#include "protocol/wire_format.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace protocol {

/// A view of one whole entry of a known type, valid as long as the payload. A getter returns nothing for an entry of
/// another type.
class EntryView {
public:
    /// Views nothing yet and must not be asked.
    EntryView() = default;

    /// `typeAt`: the type byte, just after the key. `length`: bytes of the value without its length field.
    EntryView(const std::uint8_t* typeAt, std::uint8_t keyLength, std::uint32_t length)
        : mTypeAt(typeAt), mLength(length), mKeyLength(keyLength) {}

    std::string_view key() const { return {reinterpret_cast<const char*>(mTypeAt - mKeyLength), mKeyLength}; }

    const std::uint8_t* typeAt() const { return mTypeAt; }

    std::optional<std::uint8_t> getByte() const {
        return has(kTypeByte) ? std::optional<std::uint8_t>(mTypeAt[1]) : std::nullopt;
    }

    std::optional<std::int32_t> getInt() const {
        return has(kTypeInt) ? std::optional<std::int32_t>(static_cast<std::int32_t>(loadU32(mTypeAt + 1)))
                             : std::nullopt;
    }

    std::optional<std::string_view> getText() const {
        if (!has(kTypeString)) {
            return std::nullopt;
        }
        return std::string_view(reinterpret_cast<const char*>(mTypeAt + 1 + kTextLengthWidth), mLength);
    }

private:
    bool has(ValueType type) const { return *mTypeAt == type; }

    const std::uint8_t* mTypeAt = nullptr;
    std::uint32_t mLength = 0;
    std::uint32_t mKeyLength = 0; ///< wide, so that a copy is two words and not bytes in between
};

} // namespace protocol
