#include "protocol/protected_header.h"

#include "protocol/wire_format.h"

namespace protocol {

namespace {

constexpr std::uint8_t kEncryptedFlag = 0x80;
constexpr std::uint8_t kPaddedFlag = 0x40;
constexpr std::uint8_t kIntegrityFlag = 0x20;

/// The header length, which does not count these two bytes.
constexpr std::size_t kLengthSize = 2;
constexpr std::size_t kFlagBytesWritten = 1;
constexpr std::size_t kPadCountSize = 1;
constexpr std::size_t kIntegritySize = 4;

} // namespace

std::size_t ProtectedHeader::sizeFor(bool padded, bool integrityPresent) {
    return kFixedSize + kFlagBytesWritten + (padded ? kPadCountSize : 0) +
           (integrityPresent ? kIntegritySize : 0);
}

bool ProtectedHeader::read(const std::uint8_t* message, std::size_t messageSize) {
    size = loadU16(message) + kLengthSize;
    const std::size_t flagBytes = message[2];
    std::size_t position = kFixedSize + flagBytes;
    if (size > messageSize || position > size) {
        return false;
    }
    const std::uint8_t flags = flagBytes != 0 ? message[kFixedSize] : 0;
    encrypted = (flags & kEncryptedFlag) != 0;
    integrityPresent = (flags & kIntegrityFlag) != 0;
    if ((flags & kPaddedFlag) != 0) {
        if (position + kPadCountSize > size) {
            return false;
        }
        padCount = message[position];
        position += kPadCountSize;
        if (padCount > messageSize - size) {
            return false;
        }
    }
    if (integrityPresent) {
        if (position + kIntegritySize > size) {
            return false;
        }
        integrity = loadU32(message + position);
    }
    return true;
}

std::size_t ProtectedHeader::write(std::uint8_t* message) const {
    std::size_t position = kFixedSize;
    message[2] = kFlagBytesWritten;
    message[position++] =
        static_cast<std::uint8_t>((encrypted ? kEncryptedFlag : 0) | (padCount != 0 ? kPaddedFlag : 0) |
                                  (integrityPresent ? kIntegrityFlag : 0));
    if (padCount != 0) {
        message[position++] = static_cast<std::uint8_t>(padCount);
    }
    if (integrityPresent) {
        storeU32(message + position, integrity);
        position += kIntegritySize;
    }
    message[0] = 0;
    message[1] = static_cast<std::uint8_t>(position - kLengthSize);
    return position;
}

} // namespace protocol
