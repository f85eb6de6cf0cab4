#include "protocol/aes128.h"

#include "protocol/aes128_tables.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr std::size_t kColumns = 4;
constexpr std::size_t kLastRound = kAes128RoundKeys - 1;

/// A state or round key as four columns, row 0 in the lowest byte of each.
struct Block {
    std::uint32_t column[kColumns];
};

using Schedule = std::array<Block, kAes128RoundKeys>;

/// Compilers make one load of it where the processor's byte order allows; so they do with the store below.
std::uint32_t loadColumn(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void storeColumn(std::uint32_t column, std::uint8_t* bytes) {
    bytes[0] = static_cast<std::uint8_t>(column);
    bytes[1] = static_cast<std::uint8_t>(column >> 8);
    bytes[2] = static_cast<std::uint8_t>(column >> 16);
    bytes[3] = static_cast<std::uint8_t>(column >> 24);
}

Block load(const std::uint8_t* bytes) {
    return {{loadColumn(bytes), loadColumn(bytes + 4), loadColumn(bytes + 8), loadColumn(bytes + 12)}};
}

void store(const Block& block, std::uint8_t* bytes) {
    for (std::size_t column = 0; column < kColumns; ++column) {
        storeColumn(block.column[column], bytes + 4 * column);
    }
}

Block operator^(const Block& left, const Block& right) {
    return {{left.column[0] ^ right.column[0], left.column[1] ^ right.column[1],
             left.column[2] ^ right.column[2], left.column[3] ^ right.column[3]}};
}

Schedule loadSchedule(const Aes128State& state) {
    Schedule schedule;
    for (std::size_t round = 0; round < kAes128RoundKeys; ++round) {
        schedule[round] = load(state.roundKeys[round]);
    }
    return schedule;
}

/// One column of the next state from the columns that hold its four rows.
std::uint32_t mix(const AesRoundTables& tables, std::uint32_t row0, std::uint32_t row1, std::uint32_t row2,
                  std::uint32_t row3) {
    return tables[0][row0 & 0xFFU] ^ tables[1][row1 >> 8 & 0xFFU] ^ tables[2][row2 >> 16 & 0xFFU] ^
           tables[3][row3 >> 24];
}

/// The same for the last round, which substitutes but does not mix.
std::uint32_t substitute(const AesByteTable& table, std::uint32_t row0, std::uint32_t row1,
                         std::uint32_t row2, std::uint32_t row3) {
    return static_cast<std::uint32_t>(table[row0 & 0xFFU]) |
           static_cast<std::uint32_t>(table[row1 >> 8 & 0xFFU]) << 8 |
           static_cast<std::uint32_t>(table[row2 >> 16 & 0xFFU]) << 16 |
           static_cast<std::uint32_t>(table[row3 >> 24]) << 24;
}

/// Encryption takes row r from r columns to the right, decryption from r columns to the left: with the
/// columns in the order 0 1 2 3 or 0 3 2 1 both are the same walk.
struct Encryption {
    static constexpr const AesRoundTables& kRound = kAesEncryptRound;
    static constexpr const AesByteTable& kLast = kAesSubstitution;
    static constexpr std::size_t kStep = 1;
};

struct Decryption {
    static constexpr const AesRoundTables& kRound = kAesDecryptRound;
    static constexpr const AesByteTable& kLast = kAesInverseSubstitution;
    static constexpr std::size_t kStep = 3;
};

template <typename Direction>
Block cipher(const Schedule& schedule, const Block& input) {
    constexpr std::size_t kStep = Direction::kStep;
    Block block = input ^ schedule[0];
    for (std::size_t round = 1; round < kLastRound; ++round) {
        const Block& key = schedule[round];
        Block next;
        for (std::size_t column = 0; column < kColumns; ++column) {
            next.column[column] = key.column[column] ^ mix(Direction::kRound, block.column[column],
                                                           block.column[(column + kStep) % kColumns],
                                                           block.column[(column + 2 * kStep) % kColumns],
                                                           block.column[(column + 3 * kStep) % kColumns]);
        }
        block = next;
    }
    Block last;
    for (std::size_t column = 0; column < kColumns; ++column) {
        last.column[column] = substitute(
            Direction::kLast, block.column[column], block.column[(column + kStep) % kColumns],
            block.column[(column + 2 * kStep) % kColumns], block.column[(column + 3 * kStep) % kColumns]);
    }
    return last ^ schedule[kLastRound];
}

void expandForEncryption(const std::uint8_t* key, Aes128State& state) {
    std::uint32_t constant = 1;
    Block block = load(key);
    store(block, state.roundKeys[0]);
    for (std::size_t round = 1; round < kAes128RoundKeys; ++round) {
        const std::uint32_t turned = std::rotr(block.column[3], 8);
        block.column[0] ^= substitute(kAesSubstitution, turned, turned, turned, turned) ^ constant;
        block.column[1] ^= block.column[0];
        block.column[2] ^= block.column[1];
        block.column[3] ^= block.column[2];
        store(block, state.roundKeys[round]);
        constant = aes128_tables::multiply(static_cast<std::uint8_t>(constant), 2);
    }
}

/// The inverse column mixing alone. The decryption tables apply the inverse substitution first; substituting before the
/// look-up cancels that.
std::uint32_t inverseMix(std::uint32_t column) {
    const std::uint32_t substituted = substitute(kAesSubstitution, column, column, column, column);
    return mix(kAesDecryptRound, substituted, substituted, substituted, substituted);
}

void expandForDecryption(const std::uint8_t* key, Aes128State& state) {
    expandForEncryption(key, state);
    std::reverse(std::begin(state.roundKeys), std::end(state.roundKeys));
    for (std::size_t round = 1; round < kLastRound; ++round) {
        Block block = load(state.roundKeys[round]);
        for (std::uint32_t& column : block.column) {
            column = inverseMix(column);
        }
        store(block, state.roundKeys[round]);
    }
}

void cbcEncrypt(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
    const Schedule schedule = loadSchedule(state);
    Block chain = load(state.iv);
    for (; blocks != 0; --blocks, in += kAesBlockSize, out += kAesBlockSize) {
        chain = cipher<Encryption>(schedule, load(in) ^ chain);
        store(chain, out);
    }
    store(chain, state.iv);
}

void cbcDecrypt(Aes128State& state, const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
    const Schedule schedule = loadSchedule(state);
    Block chain = load(state.iv);
    for (; blocks != 0; --blocks, in += kAesBlockSize, out += kAesBlockSize) {
        const Block encrypted = load(in);
        store(cipher<Decryption>(schedule, encrypted) ^ chain, out);
        chain = encrypted;
    }
    store(chain, state.iv);
}

constexpr Aes128Implementation kImplementation = {expandForEncryption, expandForDecryption, cbcEncrypt,
                                                  cbcDecrypt};

} // namespace

const Aes128Implementation& aes128Portable() {
    return kImplementation;
}
