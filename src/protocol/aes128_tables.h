#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

// The constants of FIPS-197, computed at compile time from their definitions.

using AesByteTable = std::array<std::uint8_t, 256>;
using AesWordTable = std::array<std::uint32_t, 256>;
/// Table r belongs to row r of the state.
using AesRoundTables = std::array<AesWordTable, 4>;

namespace aes128_tables {

/// Product in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1.
constexpr std::uint8_t multiply(std::uint8_t left, std::uint8_t right) {
    unsigned product = 0;
    unsigned factor = left;
    for (unsigned bits = right; bits != 0; bits >>= 1) {
        product ^= (bits & 1U) != 0 ? factor : 0;
        factor = (factor << 1) ^ ((factor & 0x80U) != 0 ? 0x11BU : 0);
    }
    return static_cast<std::uint8_t>(product);
}

/// Walks 3^n and 3^-n (3 generates all non-zero elements), so every inverse is met without searching for it.
constexpr AesByteTable makeSubstitution() {
    AesByteTable table = {};
    std::uint8_t element = 1;
    std::uint8_t inverse = 1;
    for (int step = 0; step < 255; ++step) {
        const auto affine =
            static_cast<std::uint8_t>(inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^
                                      std::rotl(inverse, 3) ^ std::rotl(inverse, 4) ^ 0x63);
        table[element] = affine;
        element = multiply(element, 0x03);
        inverse = multiply(inverse, 0xF6); // 0xF6 is the inverse of 3
    }
    table[0] = 0x63;
    return table;
}

constexpr AesByteTable makeInverse(const AesByteTable& substitution) {
    AesByteTable table = {};
    for (std::size_t index = 0; index < table.size(); ++index) {
        table[substitution[index]] = static_cast<std::uint8_t>(index);
    }
    return table;
}

/// Substitution and column mixing in one look-up. A word is a column with row 0 in its lowest byte; `rows` is
/// the first column of the mixing matrix, from row 0 down.
constexpr AesRoundTables makeRoundTables(const AesByteTable& substitution,
                                         const std::array<std::uint8_t, 4>& rows) {
    AesRoundTables tables = {};
    for (std::size_t index = 0; index < substitution.size(); ++index) {
        std::uint32_t column = 0;
        for (unsigned row = 0; row < 4; ++row) {
            column |= static_cast<std::uint32_t>(multiply(substitution[index], rows[row])) << 8 * row;
        }
        for (unsigned row = 0; row < 4; ++row) {
            tables[row][index] = std::rotl(column, static_cast<int>(8 * row));
        }
    }
    return tables;
}

} // namespace aes128_tables

inline constexpr AesByteTable kAesSubstitution = aes128_tables::makeSubstitution();
inline constexpr AesByteTable kAesInverseSubstitution = aes128_tables::makeInverse(kAesSubstitution);
inline constexpr AesRoundTables kAesEncryptRound =
    aes128_tables::makeRoundTables(kAesSubstitution, {0x02, 0x01, 0x01, 0x03});
inline constexpr AesRoundTables kAesDecryptRound =
    aes128_tables::makeRoundTables(kAesInverseSubstitution, {0x0E, 0x09, 0x0D, 0x0B});
