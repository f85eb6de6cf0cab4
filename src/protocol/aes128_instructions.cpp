#include "protocol/aes128.h"

#include "protocol/cpu_features.h"

#include <immintrin.h>

namespace {

constexpr std::size_t kLastRound = kAes128RoundKeys - 1;

/// Enough independent blocks to hide the latency of the AES instructions, few enough to stay in registers.
constexpr std::size_t kBlocksInFlight = 8;

__m128i load(const std::uint8_t* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

void store(std::uint8_t* bytes, __m128i block) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), block);
}

template <int RoundConstant>
SONVIA_TARGET("aes")
inline __m128i nextRoundKey(__m128i key) {
    const __m128i assist = _mm_shuffle_epi32(_mm_aeskeygenassist_si128(key, RoundConstant), 0xFF);
    key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
    key = _mm_xor_si128(key, _mm_slli_si128(key, 8));
    return _mm_xor_si128(key, assist);
}

SONVIA_TARGET("aes") void expandForEncryption(const std::uint8_t* key, Aes128State& state) {
    __m128i keys[kAes128RoundKeys];
    keys[0] = load(key);
    keys[1] = nextRoundKey<0x01>(keys[0]);
    keys[2] = nextRoundKey<0x02>(keys[1]);
    keys[3] = nextRoundKey<0x04>(keys[2]);
    keys[4] = nextRoundKey<0x08>(keys[3]);
    keys[5] = nextRoundKey<0x10>(keys[4]);
    keys[6] = nextRoundKey<0x20>(keys[5]);
    keys[7] = nextRoundKey<0x40>(keys[6]);
    keys[8] = nextRoundKey<0x80>(keys[7]);
    keys[9] = nextRoundKey<0x1B>(keys[8]);
    keys[10] = nextRoundKey<0x36>(keys[9]);
    for (std::size_t round = 0; round < kAes128RoundKeys; ++round) {
        store(state.roundKeys[round], keys[round]);
    }
}

SONVIA_TARGET("aes") void expandForDecryption(const std::uint8_t* key, Aes128State& state) {
    Aes128State encryption;
    expandForEncryption(key, encryption);
    store(state.roundKeys[0], load(encryption.roundKeys[kLastRound]));
    for (std::size_t round = 1; round < kLastRound; ++round) {
        store(state.roundKeys[round], _mm_aesimc_si128(load(encryption.roundKeys[kLastRound - round])));
    }
    store(state.roundKeys[kLastRound], load(encryption.roundKeys[0]));
}

/// Each block waits for the one before it, so only the length of that one chain counts. The last round of a
/// block XORs a key anyway: XORing the next block's data and first key with it saves that step from the
/// chain.
SONVIA_TARGET("aes")

void cbcEncrypt(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
    if (blocks == 0) {
        return;
    }
    __m128i keys[kAes128RoundKeys];
    for (std::size_t round = 0; round < kAes128RoundKeys; ++round) {
        keys[round] = load(state.roundKeys[round]);
    }
    const __m128i turn = _mm_xor_si128(keys[0], keys[kLastRound]);
    __m128i block = _mm_xor_si128(_mm_xor_si128(load(in), keys[0]), load(state.iv));
    for (;;) {
        for (std::size_t round = 1; round < kLastRound; ++round) {
            block = _mm_aesenc_si128(block, keys[round]);
        }
        const __m128i encrypted = _mm_aesenclast_si128(block, keys[kLastRound]);
        store(out, encrypted);
        if (--blocks == 0) {
            store(state.iv, encrypted);
            return;
        }
        in += kAesBlockSize;
        out += kAesBlockSize;
        block = _mm_aesenclast_si128(block, _mm_xor_si128(load(in), turn));
    }
}

/// Decrypts `Count` blocks in parallel.
template <std::size_t Count>
SONVIA_TARGET("aes")
inline void decryptSideBySide(const __m128i* keys, __m128i& chain, const std::uint8_t* in,
                              std::uint8_t* out) {
    __m128i blocks[Count];
    for (std::size_t index = 0; index < Count; ++index) {
        blocks[index] = _mm_xor_si128(load(in + index * kAesBlockSize), keys[0]);
    }
    for (std::size_t round = 1; round < kLastRound; ++round) {
        for (std::size_t index = 0; index < Count; ++index) {
            blocks[index] = _mm_aesdec_si128(blocks[index], keys[round]);
        }
    }
    for (std::size_t index = 0; index < Count; ++index) {
        const __m128i encrypted = load(in + index * kAesBlockSize);
        // XORs the chaining block into the last key, as in encryption.
        store(out + index * kAesBlockSize,
              _mm_aesdeclast_si128(blocks[index], _mm_xor_si128(keys[kLastRound], chain)));
        chain = encrypted;
    }
}

SONVIA_TARGET("aes")

void cbcDecrypt(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
    __m128i keys[kAes128RoundKeys];
    for (std::size_t round = 0; round < kAes128RoundKeys; ++round) {
        keys[round] = load(state.roundKeys[round]);
    }
    __m128i chain = load(state.iv);
    for (; blocks >= kBlocksInFlight; blocks -= kBlocksInFlight) {
        decryptSideBySide<kBlocksInFlight>(keys, chain, in, out);
        in += kBlocksInFlight * kAesBlockSize;
        out += kBlocksInFlight * kAesBlockSize;
    }
    for (; blocks >= 4; blocks -= 4) {
        decryptSideBySide<4>(keys, chain, in, out);
        in += 4 * kAesBlockSize;
        out += 4 * kAesBlockSize;
    }
    for (; blocks != 0; --blocks) {
        decryptSideBySide<1>(keys, chain, in, out);
        in += kAesBlockSize;
        out += kAesBlockSize;
    }
    store(state.iv, chain);
}

constexpr Aes128Implementation kImplementation = {expandForEncryption, expandForDecryption, cbcEncrypt,
                                                  cbcDecrypt};

} // namespace

const Aes128Implementation* aes128Instructions() {
    return cpuFeatures().aes ? &kImplementation : nullptr;
}
