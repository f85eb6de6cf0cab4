#pragma once

#include <cstdint>

/// How often this process has asked the heap for memory so far: malloc, calloc, realloc and what is built on them.
std::uint64_t allocations();
