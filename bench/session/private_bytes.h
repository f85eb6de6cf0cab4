#pragma once

#include <cstdint>

/// The memory of this process that it shares with no other.
std::int64_t privateBytes();
