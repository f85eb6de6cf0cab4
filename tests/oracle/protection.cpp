#include "oracle/protection.h"

namespace oracle {

namespace {

constexpr std::uint8_t kEncrypted = 0x80;
constexpr std::uint8_t kPadded = 0x40;
constexpr std::uint8_t kChecked = 0x20;
constexpr std::uint32_t kNoValue = 0xFFFFFFFF;

/// What the fields of a message's header say.
struct Fields {
    std::size_t headerSize = 0;
    std::uint8_t flags = 0;
    std::size_t padding = 0;
    std::uint32_t check = 0;
};

std::optional<Fields> fieldsOf(const Bytes& message) {
    Fields fields;
    if (message.size() < 3) {
        return std::nullopt;
    }
    fields.headerSize = number(message, 0, 2) + 2;
    const std::size_t flagBytes = message[2];
    std::size_t next = 3 + flagBytes;
    if (fields.headerSize > message.size() || next > fields.headerSize) {
        return std::nullopt;
    }
    fields.flags = flagBytes != 0 ? message[3] : 0;
    if ((fields.flags & kPadded) != 0) {
        if (next + 1 > fields.headerSize) {
            return std::nullopt;
        }
        fields.padding = message[next++];
    }
    if ((fields.flags & kChecked) != 0) {
        if (next + 4 > fields.headerSize) {
            return std::nullopt;
        }
        fields.check = static_cast<std::uint32_t>(number(message, next, 4));
    }
    return fields;
}

} // namespace

std::uint32_t integrityOf(const Bytes& data) {
    std::uint32_t remainder = 0xFFFFFFFF;
    for (const std::uint8_t byte : data) {
        remainder ^= static_cast<std::uint32_t>(byte) << 24;
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = remainder >= 0x80000000U;
            remainder = (remainder << 1) ^ (carry ? 0x04C11DB7U : 0U);
        }
    }
    Bytes reversed;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        reversed.push_back(static_cast<std::uint8_t>(remainder >> shift));
    }
    return static_cast<std::uint32_t>(number(reversed, 0, 4));
}

std::uint32_t Protection::checkValue(const Bytes& data) const {
    return settings.integrityKnown ? integrityOf(data) : kNoValue;
}

Bytes Protection::seal(const Bytes& payload) {
    const bool padded = settings.pad || (settings.encrypt && payload.size() % 16 != 0);
    Bytes data = payload;
    const std::size_t padding = padded ? 16 - payload.size() % 16 : 0;
    data.resize(payload.size() + padding);
    if (settings.encrypt) {
        data = mSend.encrypt(data);
    }
    Bytes message;
    appendNumber(message, 2U + (padded ? 1 : 0) + (settings.integrity ? 4 : 0), 2);
    message.push_back(1);
    message.push_back(static_cast<std::uint8_t>((settings.encrypt ? kEncrypted : 0) | (padded ? kPadded : 0) |
                                                (settings.integrity ? kChecked : 0)));
    if (padded) {
        appendNumber(message, padding, 1);
    }
    if (settings.integrity) {
        appendNumber(message, checkValue(data), 4);
    }
    append(message, data);
    return message;
}

std::optional<Bytes> Protection::open(const Bytes& message) {
    const std::optional<Fields> fields = fieldsOf(message);
    if (!fields) {
        return std::nullopt;
    }
    Bytes data = part(message, fields->headerSize, message.size() - fields->headerSize);
    const bool encrypted = (fields->flags & kEncrypted) != 0;
    if (fields->padding > data.size() || (encrypted && data.size() % 16 != 0) ||
        ((fields->flags & kChecked) != 0 && fields->check != checkValue(data))) {
        return std::nullopt;
    }
    if (encrypted) {
        data = mReceive.decrypt(data);
    }
    data.resize(data.size() - fields->padding);
    return data;
}

} // namespace oracle
