#pragma once

#include <cstddef>
#include <cstdint>

namespace protocol {

/// The header of a protected message (docs/protection.md shows its bytes).
struct ProtectedHeader {
    /// What every header has: its length and the count of flag bytes.
    static constexpr std::size_t kFixedSize = 3;

    /// The bytes that write() fills.
    static std::size_t sizeFor(bool padded, bool integrityPresent);

    /// Reads the header of a message of at least kFixedSize bytes. False when it contradicts itself or the message's size.
    bool read(const std::uint8_t* message, std::size_t messageSize);

    /// Writes the header to the start of `message` and returns its size. Padded when `padCount` is not 0.
    std::size_t write(std::uint8_t* message) const;

    std::size_t size = 0; ///< set by read()
    std::size_t padCount = 0;
    bool encrypted = false;
    bool integrityPresent = false;
    std::uint32_t integrity = 0;
};

} // namespace protocol
