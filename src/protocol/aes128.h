#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kAesBlockSize = 16;
inline constexpr std::size_t kAes128RoundKeys = 11;

/// One direction of an AES-128 CBC chain. The bytes of `roundKeys` are in FIPS-197 order; a
/// decryption state holds the schedule of the equivalent inverse cipher, so both implementations below accept every
/// state.
struct Aes128State {
    std::uint8_t roundKeys[kAes128RoundKeys][kAesBlockSize] = {};
    /// The last ciphertext block of the chain so far, or the initial value.
    std::uint8_t iv[kAesBlockSize] = {};
};

/// One implementation of AES-128. All operations are free of hidden state, never block and never fail.
struct Aes128Implementation {
    /// Expands the 16 bytes at `key` for encryption; the chaining block is unchanged.
    void (*expandForEncryption)(const std::uint8_t* key, Aes128State& state);
    /// Expands the 16 bytes at `key` for decryption; the chaining block is unchanged.
    void (*expandForDecryption)(const std::uint8_t* key, Aes128State& state);
    /// Continue the chain over `blocks` blocks from `in` to `out`, which are the same address or do not
    /// overlap; neither needs an alignment.
    void (*cbcEncrypt)(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
    void (*cbcDecrypt)(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
};

/// The fastest implementation for this CPU, detected on first use.
const Aes128Implementation& aes128();

/// Tables, for any CPU. Its look-ups depend on key and data, so its timing does too.
const Aes128Implementation& aes128Portable();

/// The CPU's AES instructions, free of look-ups; null when the CPU has none.
const Aes128Implementation* aes128Instructions();
