#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kAesBlockSize = 16;
inline constexpr std::size_t kAes128RoundKeys = 11;

/// One direction of an AES-128 CBC chain. The bytes of `roundKeys` are in FIPS-197 order; a
/// decryption state holds the schedule of the equivalent inverse cipher, so both codes below understand every
/// state.
struct Aes128State {
    std::uint8_t roundKeys[kAes128RoundKeys][kAesBlockSize] = {};
    /// The last ciphertext block of the chain so far, or the initial value.
    std::uint8_t iv[kAesBlockSize] = {};
};

/// One implementation of AES-128. All operations are free of hidden state, never block and never fail.
struct Aes128Code {
    /// Expands the 16 bytes at `key` for encryption; the chaining block is left alone.
    void (*expandForEncryption)(const std::uint8_t* key, Aes128State& state);
    /// Expands the 16 bytes at `key` for decryption; the chaining block is left alone.
    void (*expandForDecryption)(const std::uint8_t* key, Aes128State& state);
    /// Continue the chain over `blocks` blocks from `in` to `out`, which are the same address or do not
    /// overlap; neither needs an alignment.
    void (*cbcEncrypt)(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
    void (*cbcDecrypt)(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
};

/// The fastest code this processor can run; the processor is asked once.
const Aes128Code& aes128();

/// Table code for any processor. Its look-ups depend on key and data, so its timing does too.
const Aes128Code& aes128Portable();

/// Code on the processor's AES instructions, free of look-ups; null when the processor has none.
const Aes128Code* aes128Instructions();
