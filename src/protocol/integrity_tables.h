#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::uint32_t kIntegrityStart = 0xFFFFFFFFU;

/// x^32 of the polynomial is left out, as usual.
inline constexpr std::uint32_t kIntegrityPolynomial = 0x04C11DB7U;

/// Continues `value` over `size` bytes by sixteen tables. A value of 0 at the start makes the result linear
/// in the data, which is what the folding code ends with.
std::uint32_t continueIntegritySliced(std::uint32_t value, const std::uint8_t* data, std::size_t size);
