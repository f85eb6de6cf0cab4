#pragma once

#include <cstddef>
#include <cstdint>

/// The 32-bit integrity value of a message: CRC-32/MPEG-2 (polynomial 0x04C11DB7, most significant bit first,
/// start value 0xFFFFFFFF, no final XOR) with its four bytes reversed. This is not the CRC-32 of zip and
/// Ethernet, which also reflects the bits of every byte. Empty data gives 0xFFFFFFFF. `data`: `size` bytes,
/// may be null when `size` is 0. Any thread; never blocks.
using IntegrityCode = std::uint32_t (*)(const std::uint8_t* data, std::size_t size);

/// The value, by the fastest implementation for this CPU, detected on first use.
std::uint32_t integrityValue(const std::uint8_t* data, std::size_t size);

/// The value by sixteen tables, on any processor.
std::uint32_t integrityValueSliced(const std::uint8_t* data, std::size_t size);

/// Folds with the CPU's carry-less multiplication; null when the CPU has none.
IntegrityCode integrityValueFolded();
