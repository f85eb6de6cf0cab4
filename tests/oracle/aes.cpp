#include "oracle/aes.h"

#include <algorithm>

namespace oracle {

namespace {

using Table = std::array<std::uint8_t, 256>;

std::uint8_t product(unsigned a, unsigned b) {
    unsigned sum = 0;
    for (; b != 0; b >>= 1) {
        sum ^= (b & 1U) != 0 ? a : 0;
        a <<= 1;
        a ^= (a & 0x100U) != 0 ? 0x11BU : 0;
    }
    return static_cast<std::uint8_t>(sum);
}

Table multiplesOf(unsigned factor) {
    Table table = {};
    for (unsigned value = 0; value < 256; ++value) {
        table[value] = product(value, factor);
    }
    return table;
}

Table makeSubstitution() {
    Table table = {};
    for (unsigned value = 0; value < 256; ++value) {
        unsigned inverse = 0;
        for (unsigned candidate = 1; candidate < 256; ++candidate) {
            inverse = product(value, candidate) == 1 ? candidate : inverse;
        }
        unsigned result = 0x63;
        for (unsigned turn = 0; turn < 5; ++turn) {
            result ^= inverse << turn | inverse >> (8 - turn);
        }
        table[value] = static_cast<std::uint8_t>(result);
    }
    return table;
}

struct Tables {
    Tables() {
        for (unsigned value = 0; value < 256; ++value) {
            inverse[substitution[value]] = static_cast<std::uint8_t>(value);
        }
    }

    Table substitution = makeSubstitution();
    Table inverse = {};
    /// Of the factors in the first column of the mixing matrix and of its inverse.
    std::array<Table, 4> mixing = {multiplesOf(2), multiplesOf(1), multiplesOf(1), multiplesOf(3)};
    std::array<Table, 4> inverseMixing = {multiplesOf(14), multiplesOf(9), multiplesOf(13), multiplesOf(11)};
};

const Tables& tables() {
    static const Tables kTables;
    return kTables;
}

Block sum(const Block& a, const Block& b) {
    Block result = {};
    std::transform(a.begin(), a.end(), b.begin(), result.begin(), [](std::uint8_t left, std::uint8_t right) {
        return static_cast<std::uint8_t>(left ^ right);
    });
    return result;
}

Block substituted(Block block, const Table& table) {
    std::transform(block.begin(), block.end(), block.begin(), [&](std::uint8_t byte) { return table[byte]; });
    return block;
}

/// The state is stored in columns: row r of column c is byte 4c + r.
Block rowsShifted(const Block& block, unsigned columns) {
    Block result = {};
    for (unsigned place = 0; place < 16; ++place) {
        const unsigned row = place % 4;
        result[place] = block[(place + 4 * columns * row) % 16];
    }
    return result;
}

Block columnsMixed(const Block& block, const std::array<Table, 4>& factors) {
    Block result = {};
    for (unsigned place = 0; place < 16; ++place) {
        const unsigned column = place / 4 * 4;
        for (unsigned from = 0; from < 4; ++from) {
            result[place] ^= factors[(place - from) % 4][block[column + from]];
        }
    }
    return result;
}

Block blockAt(const Bytes& bytes, std::size_t at) {
    Block block = {};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), block.size(), block.begin());
    return block;
}

} // namespace

Aes::Aes(const Block& key) : mRoundKeys() {
    Bytes words(key.begin(), key.end());
    unsigned constant = 1;
    while (words.size() < 16 * mRoundKeys.size()) {
        Bytes word = part(words, words.size() - 4, 4);
        if (words.size() % 16 == 0) {
            std::rotate(word.begin(), word.begin() + 1, word.end());
            for (std::uint8_t& byte : word) {
                byte = tables().substitution[byte];
            }
            word[0] = static_cast<std::uint8_t>(word[0] ^ constant);
            constant = product(constant, 2);
        }
        for (const std::uint8_t byte : word) {
            words.push_back(static_cast<std::uint8_t>(byte ^ words[words.size() - 16]));
        }
    }
    for (std::size_t round = 0; round < mRoundKeys.size(); ++round) {
        mRoundKeys[round] = blockAt(words, 16 * round);
    }
}

Block Aes::encrypt(Block block) const {
    block = sum(block, mRoundKeys[0]);
    for (std::size_t round = 1; round <= 10; ++round) {
        block = rowsShifted(substituted(block, tables().substitution), 1);
        if (round != 10) {
            block = columnsMixed(block, tables().mixing);
        }
        block = sum(block, mRoundKeys[round]);
    }
    return block;
}

Block Aes::decrypt(Block block) const {
    for (std::size_t round = 10; round >= 1; --round) {
        block = sum(block, mRoundKeys[round]);
        if (round != 10) {
            block = columnsMixed(block, tables().inverseMixing);
        }
        block = substituted(rowsShifted(block, 3), tables().inverse);
    }
    return sum(block, mRoundKeys[0]);
}

Bytes AesChain::encrypt(const Bytes& plain) {
    Bytes secret;
    for (std::size_t at = 0; at < plain.size(); at += 16) {
        mLast = mAes.encrypt(sum(blockAt(plain, at), mLast));
        secret.insert(secret.end(), mLast.begin(), mLast.end());
    }
    return secret;
}

Bytes AesChain::decrypt(const Bytes& secret) {
    Bytes plain;
    for (std::size_t at = 0; at < secret.size(); at += 16) {
        const Block block = blockAt(secret, at);
        const Block opened = sum(mAes.decrypt(block), mLast);
        plain.insert(plain.end(), opened.begin(), opened.end());
        mLast = block;
    }
    return plain;
}

} // namespace oracle
