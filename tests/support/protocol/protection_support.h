#pragma once

#include "protocol/safety_data_deal.h"

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace support {

using Bytes = std::vector<std::uint8_t>;
using AesBlock = std::array<std::uint8_t, kAesBlockSize>;

inline constexpr AesBlock kTestKey = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                      0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
inline constexpr AesBlock kNearIv = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
inline constexpr AesBlock kFarIv = {201, 202, 203, 204, 205, 206, 207, 208,
                                    209, 210, 211, 212, 213, 214, 215, 216};

/// Hexadecimal digits, blanks between them allowed.
Bytes fromHex(std::string_view digits);

Bytes textBytes(std::string_view text);

Bytes randomBytes(std::mt19937& random, std::size_t size);

/// What a context should do to the payloads it sends.
struct ProtectionFlags {
    bool encrypt = false;
    bool pad = false;
    bool integrity = false;
};

/// All eight combinations.
std::vector<ProtectionFlags> everyFlagCombination();

std::shared_ptr<SafetyDataDeal> nearContext(ProtectionFlags flags);

/// The other end: its decryption chain starts where the near encryption chain does, and the other way round.
std::shared_ptr<SafetyDataDeal> farContext(ProtectionFlags flags);

/// The result of one call, its buffer copied and freed.
struct Outcome {
    bool ok = false;
    bool hasBuffer = false;
    Bytes data;
};

Outcome encrypt(SafetyDataDeal& context, const Bytes& payload);
Outcome decrypt(SafetyDataDeal& context, const Bytes& message);

/// An address as the log shows it: its low half.
std::string shownAddress(const void* address);

} // namespace support
