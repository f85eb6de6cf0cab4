#pragma once

#include "oracle/protection.h"
#include "protocol/safety_data_deal.h"

#include <cstdint>
#include <memory>

/// The two ends of a protected connection, each in both opinions. Bits of the fuzzer's choice: 0 encrypt, 1 pad,
/// 2 integrity, 3 an integrity algorithm that is known.
std::shared_ptr<SafetyDataDeal> makeContext(std::uint8_t choice);
oracle::Protection makeProtection(std::uint8_t choice);
