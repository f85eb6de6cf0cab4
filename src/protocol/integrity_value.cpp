#include "protocol/integrity_value.h"

#include "protocol/integrity_tables.h"

#include <array>

namespace {

constexpr std::size_t kSlices = 16;

using Table = std::array<std::uint32_t, 256>;

constexpr std::uint32_t reverseBytes(std::uint32_t value) {
    return value << 24 | (value & 0xFF00U) << 8 | (value >> 8 & 0xFF00U) | value >> 24;
}

/// The running value is kept byte-reversed, so a byte of data meets its lowest byte and it moves to the
/// right, although the polynomial's bits run from the most significant one down.
constexpr Table makeByteTable() {
    Table table = {};
    for (std::uint32_t index = 0; index < table.size(); ++index) {
        std::uint32_t remainder = index << 24;
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = (remainder & 0x80000000U) != 0;
            remainder = remainder << 1 ^ (carry ? kIntegrityPolynomial : 0);
        }
        table[index] = reverseBytes(remainder);
    }
    return table;
}

/// Table k maps a byte to its value after k more bytes.
constexpr std::array<Table, kSlices> makeTables() {
    std::array<Table, kSlices> tables = {};
    tables[0] = makeByteTable();
    for (std::size_t slice = 1; slice < kSlices; ++slice) {
        for (std::size_t index = 0; index < tables[0].size(); ++index) {
            const std::uint32_t before = tables[slice - 1][index];
            tables[slice][index] = tables[0][before & 0xFFU] ^ before >> 8;
        }
    }
    return tables;
}

constexpr std::array<Table, kSlices> kTables = makeTables();

/// Compilers make one load of it where the processor's byte order allows.
std::uint32_t loadLittleEndian(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

/// The value of the four bytes of `word` after `Later` more words of the same step.
template <std::size_t Later>
std::uint32_t sliceWord(std::uint32_t word) {
    return kTables[4 * Later + 3][word & 0xFFU] ^ kTables[4 * Later + 2][word >> 8 & 0xFFU] ^
           kTables[4 * Later + 1][word >> 16 & 0xFFU] ^ kTables[4 * Later][word >> 24];
}

IntegrityCode chooseCode() {
    const IntegrityCode folded = integrityValueFolded();
    return folded != nullptr ? folded : integrityValueSliced;
}

} // namespace

std::uint32_t continueIntegritySliced(std::uint32_t value, const std::uint8_t* data, std::size_t size) {
    for (; size >= kSlices; data += kSlices, size -= kSlices) {
        value = sliceWord<3>(loadLittleEndian(data) ^ value) ^ sliceWord<2>(loadLittleEndian(data + 4)) ^
                sliceWord<1>(loadLittleEndian(data + 8)) ^ sliceWord<0>(loadLittleEndian(data + 12));
    }
    for (; size != 0; ++data, --size) {
        value = kTables[0][(value ^ *data) & 0xFFU] ^ value >> 8;
    }
    return value;
}

std::uint32_t integrityValueSliced(const std::uint8_t* data, std::size_t size) {
    return continueIntegritySliced(kIntegrityStart, data, size);
}

std::uint32_t integrityValue(const std::uint8_t* data, std::size_t size) {
    static const IntegrityCode kCode = chooseCode();
    return kCode(data, size);
}
