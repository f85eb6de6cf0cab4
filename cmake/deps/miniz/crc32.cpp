// The checksum of zip archives, eight bytes a step. miniz's own takes one byte a step, and a quarter of the time in
// which a log is packed went there.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kStep = 8;
using Tables = std::array<std::array<std::uint32_t, 256>, kStep>;

/// tables[k][b] is what the byte b does to the checksum when k more bytes follow it in the step.
constexpr Tables makeTables() {
    Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1u) != 0 ? 0xEDB88320u ^ (value >> 1) : value >> 1;
        }
        tables[0][byte] = value;
    }
    for (std::size_t k = 1; k < kStep; ++k) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t before = tables[k - 1][byte];
            tables[k][byte] = (before >> 8) ^ tables[0][before & 0xFFu];
        }
    }
    return tables;
}

constexpr Tables kTables = makeTables();

} // namespace

// mz_ulong is unsigned long, of 32 bits on Windows.
extern "C" unsigned long mz_crc32(unsigned long before, const unsigned char* bytes, std::size_t count) {
    if (bytes == nullptr) {
        return 0;
    }
    std::uint32_t crc = ~static_cast<std::uint32_t>(before);
    for (; count >= kStep; count -= kStep, bytes += kStep) {
        std::uint32_t low = 0;
        std::uint32_t high = 0;
        std::memcpy(&low, bytes, sizeof low); // little-endian, as every target is
        std::memcpy(&high, bytes + sizeof low, sizeof high);
        low ^= crc;
        crc = kTables[7][low & 0xFFu] ^ kTables[6][low >> 8 & 0xFFu] ^ kTables[5][low >> 16 & 0xFFu] ^
              kTables[4][low >> 24] ^ kTables[3][high & 0xFFu] ^ kTables[2][high >> 8 & 0xFFu] ^
              kTables[1][high >> 16 & 0xFFu] ^ kTables[0][high >> 24];
    }
    for (; count > 0; --count, ++bytes) {
        crc = (crc >> 8) ^ kTables[0][(crc ^ *bytes) & 0xFFu];
    }
    return static_cast<std::uint32_t>(~crc);
}
