#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "protocol/aes128.h"

/// Protection context of one end of a connection: wraps payloads into self-describing protected messages and
/// takes them out again. The two ends of a connection share the key; the encryption chain of one end starts
/// where the decryption chain of the other starts.
///
/// Only the two chaining blocks change, and only in a call that succeeds. They are not locked: a context
/// belongs to the event-loop thread of the connection that it is set on.
class SafetyDataDeal {
public:
    /// Makes a context with all three protections on.
    /// `key`, `encryptIv` and `decryptIv` are copied. Any thread; never blocks.
    static std::shared_ptr<SafetyDataDeal> create(std::span<const std::uint8_t, kAesBlockSize> key,
                                                  std::span<const std::uint8_t, kAesBlockSize> encryptIv,
                                                  std::span<const std::uint8_t, kAesBlockSize> decryptIv);

    SafetyDataDeal(std::span<const std::uint8_t, kAesBlockSize> key,
                   std::span<const std::uint8_t, kAesBlockSize> encryptIv,
                   std::span<const std::uint8_t, kAesBlockSize> decryptIv);
    ~SafetyDataDeal();

    /// A copy would use the same chain twice.
    SafetyDataDeal(const SafetyDataDeal&) = delete;
    SafetyDataDeal& operator=(const SafetyDataDeal&) = delete;

    /// Turns a payload into a protected message.
    /// `inData`: `inSize` bytes, null only when `inSize` is 0; read during the call only. `outData`,
    /// `outSize`: set to null and 0 first; on success a buffer that the caller releases with `free`, and its
    /// size (never 0). Event-loop thread; never blocks. Returns false when an argument is missing and
    /// after an allocation failure; the encryption chain is then unchanged.
    bool encryptData(const void* inData, std::size_t inSize, std::uint8_t** outData, std::size_t* outSize);

    /// Takes the payload out of a protected message.
    /// Arguments as for `encryptData`. The buffer is null when the message holds no data at all; a message
    /// that holds nothing but padding gives a buffer (to be freed) and the size 0. Event-loop thread; never
    /// blocks. Returns false when an argument is missing, the message is malformed or its integrity value differs, and
    /// after an allocation failure; the decryption chain is then unchanged.
    bool decryptData(const void* inData, std::size_t inSize, std::uint8_t** outData, std::size_t* outSize);

    /// The protections that `encryptData` applies; a received message has its own flags.
    bool mEncryptOn = true;
    bool mBlockPad = true;
    bool mIntegrityOn = true;
    /// 1 is the only algorithm; any other number makes every integrity value 0xFFFFFFFF, on both sides.
    std::uint32_t mIntegrityType = 1;

private:
    /// Fills in the header, `headerSize` bytes, of a message whose data is in place.
    void writeHeader(std::uint8_t* message, std::size_t headerSize, std::size_t padCount,
                     std::size_t dataSize) const;

    /// decryptData with valid arguments.
    bool unwrap(const std::uint8_t* message, std::size_t messageSize, std::uint8_t** outData,
                std::size_t* outSize);

    Aes128State mEncryptState;
    Aes128State mDecryptState;
};
